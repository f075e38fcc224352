#version 450
#extension GL_GOOGLE_include_directive : require

// From 8 bits a component to 16, so that the second direction adds no rounding of the first.
#define Texel uint
#define pack packUnorm4x8
#define unpack unpackUnorm4x8
#define FORMAT rgba16f
#define SHORT_SIDE gl_WorkGroupSize.y
#include "gaussian.glsl"
