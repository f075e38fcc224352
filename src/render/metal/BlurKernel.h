#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QelUtilVideo::metal {

/// How many pixels the blur of a frame of that size reaches, 0 to 16: `blurRadius` times the geometric mean
/// of the sides, taken up. 0 also for a radius that is not a finite number above 0.
[[nodiscard]] std::size_t pixelRadius(std::size_t width, std::size_t height, float blurRadius);

/// Texels from the centre to where a Gaussian of that deviation, 1 or more, falls to 1/256.
[[nodiscard]] std::size_t kernelHalfWidth(std::size_t radius);

/// The weights of a Gaussian by distance, `kernelHalfWidth` + 1 of them, that sum to 1 over both sides.
[[nodiscard]] std::vector<float> kernelWeights(std::size_t radius);

}  // namespace QelUtilVideo::metal
