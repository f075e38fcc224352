#version 450

// Places the quad and hands its texture coordinates on. Buffer 0 comes as the vertices, five floats each, and buffer 1 at
// binding 0; the fragment stage has textures 0 and 1 at bindings 1 and 2.
layout(set = 0, binding = 0) uniform Transform { mat4 transform; };
layout(location = 0) in vec3 position;
layout(location = 1) in vec2 texcoord;
layout(location = 0) out vec2 texcoordVarying;

void main() {
  texcoordVarying = texcoord;
  gl_Position = transform * vec4(position, 1);
}
