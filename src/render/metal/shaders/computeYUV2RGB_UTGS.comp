#version 450
#extension GL_GOOGLE_include_directive : require

// For whole workgroups, which may overhang the picture.
#include "computeYUV2RGB.glsl"
