#version 450
#extension GL_GOOGLE_include_directive : require

#define Texel uvec2
uvec2 pack(vec4 texel) { return uvec2(packHalf2x16(texel.rg), packHalf2x16(texel.ba)); }
vec4 unpack(uvec2 texel) { return vec4(unpackHalf2x16(texel.x), unpackHalf2x16(texel.y)); }
#define FORMAT rgba8
#define SHORT_SIDE gl_WorkGroupSize.x
#include "gaussian.glsl"
