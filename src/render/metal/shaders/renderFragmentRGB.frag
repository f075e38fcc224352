#version 450

layout(set = 0, binding = 1) uniform sampler2D textureRGB;
layout(location = 0) in vec2 texcoordVarying;
layout(location = 0) out vec4 fragColor;

void main() {
  fragColor = texture(textureRGB, texcoordVarying);
}
