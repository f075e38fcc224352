#version 450
#extension GL_GOOGLE_include_directive : require

#include "yuv.glsl"

layout(set = 0, binding = 1) uniform sampler2D textureY;
layout(set = 0, binding = 2) uniform sampler2D textureUV;
layout(location = 0) in vec2 texcoordVarying;
layout(location = 0) out vec4 fragColor;

void main() {
  vec3 yuv = vec3(texture(textureY, texcoordVarying).r, texture(textureUV, texcoordVarying).rg);
  fragColor = vec4(rgbOfYuv(yuv), 1);
}
