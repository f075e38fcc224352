#pragma once

#include <string>

namespace QelUtilVideo::opengl {

struct BlurKernel;

/// The shaders of one pass of a blur: they read the texture "inputTexture" along the direction
/// "texelSize", the step from one texel to the next in texture coordinates. The inner taps come as
/// interpolated coordinates; those that would be too many for every driver are computed per pixel.
[[nodiscard]] std::string blurVertexShaderSource(const BlurKernel& kernel);
[[nodiscard]] std::string blurFragmentShaderSource(const BlurKernel& kernel);

}  // namespace QelUtilVideo::opengl
