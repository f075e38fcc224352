#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace QelUtilVideo {

/// Red, green, blue as code values.
using Color = std::array<double, 3>;

/// Between the samples of a plane whose pixels are `step` bytes, as textures are read: linearly, and beyond
/// the border like the border. (0, 0) is the corner where the rows begin, (1, 1) the opposite one.
inline double sampled(const PixelPlane& plane, std::size_t step, std::size_t component, double u, double v) {
  const double x = u * static_cast<double>(plane.width) - 0.5,
               y = v * static_cast<double>(plane.height) - 0.5;
  const auto at = [&](double column, double row) {
    const auto i = static_cast<std::size_t>(std::clamp(column, 0.0, static_cast<double>(plane.width - 1)));
    const auto j = static_cast<std::size_t>(std::clamp(row, 0.0, static_cast<double>(plane.height - 1)));
    return std::to_integer<int>(plane.baseAddress[j * plane.bytesPerRow + i * step + component]);
  };
  const double left = std::floor(x), top = std::floor(y);
  return std::lerp(std::lerp(at(left, top), at(left + 1, top), x - left),
                   std::lerp(at(left, top + 1), at(left + 1, top + 1), x - left), y - top);
}

/// The colour that a bi-planar picture of video range has there.
inline Color colorOf(const CVPixelBuffer& picture, double u, double v) {
  const double luma = 1.1643 * (sampled(picture.planes()[0], 1, 0, u, v) - 0.0625 * 255);
  const double cb = sampled(picture.planes()[1], 2, 0, u, v) - 127.5;
  const double cr = sampled(picture.planes()[1], 2, 1, u, v) - 127.5;
  const Color color{luma + 1.5958 * cr, luma - 0.39173 * cb - 0.8129 * cr, luma + 2.017 * cb};
  return {std::clamp(color[0], 0.0, 255.0), std::clamp(color[1], 0.0, 255.0),
          std::clamp(color[2], 0.0, 255.0)};
}

}  // namespace QelUtilVideo
