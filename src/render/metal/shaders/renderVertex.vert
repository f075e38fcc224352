#version 450

// Places the quad and hands its texture coordinates on.
layout(set = 0, binding = 0) uniform Transform { mat4 transform; };
layout(location = 0) in vec3 position;
layout(location = 1) in vec2 texcoord;
layout(location = 0) out vec2 texcoordVarying;

void main() {
  texcoordVarying = texcoord;
  gl_Position = transform * vec4(position, 1);
}
