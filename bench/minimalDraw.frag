#version 450
layout(set = 0, binding = 0) uniform sampler2D luma;
layout(set = 0, binding = 1) uniform sampler2D chroma;
layout(location = 0) in vec2 place;
layout(location = 0) out vec4 color;
void main() {
  float y = 1.1643 * (texture(luma, place).r - 0.0625);
  vec2 c = texture(chroma, place).rg - 0.5;
  color = vec4(y + 1.5958 * c.y, y - 0.39173 * c.x - 0.8129 * c.y, y + 2.017 * c.x, 1.0);
}
