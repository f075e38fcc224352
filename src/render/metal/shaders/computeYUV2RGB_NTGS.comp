#version 450
#extension GL_GOOGLE_include_directive : require

// For grids of exactly one thread per texel, which the layer fills up to whole workgroups.
#include "computeYUV2RGB.glsl"
