#pragma once

#include "render/GeometryArithmetic.h"

#include <cstdint>
#include <vector>

namespace QelUtilVideo::opengl {

/// The standard deviation, in pixels of the image, of a blur whose radius is a fraction of the geometric
/// mean of the image's sides: a whole number up to 16. 0, which is no blur, for a radius that is not a
/// finite number above 0 and for an image without an area.
[[nodiscard]] std::uint32_t blurSigma(float radius, PixelSize<std::int32_t> image);

/// How many texels the blur reaches to each side; `sigma` is above 0.
[[nodiscard]] std::uint32_t blurTapRadius(std::uint32_t sigma);

/// Two neighbouring texels on each side of the centre, which one linear read per side stands for.
struct TapPair {
  double offset = 0;  ///< from the centre, in texels
  double weight = 0;  ///< of both texels of one side
};

/// What one pass of a separable Gaussian blur reads.
struct BlurKernel {
  /// `sigma` is above 0; a tap radius of 0 counts as 1.
  BlurKernel(std::uint32_t tapRadius, std::uint32_t sigma);

  double centerWeight = 0;
  std::vector<TapPair> pairs;  ///< from the centre outward
};

}  // namespace QelUtilVideo::opengl
