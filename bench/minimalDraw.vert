#version 450
// A triangle that covers the target.
layout(location = 0) out vec2 place;
void main() {
  place = vec2(gl_VertexIndex & 1, gl_VertexIndex >> 1) * 2.0;
  gl_Position = vec4(place * 2.0 - 1.0, 0.0, 1.0);
}
