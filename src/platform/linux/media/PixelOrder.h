#pragma once

#include <QelUtilVideo/platform/CGImage.h>

#include <cstdint>
#include <optional>

namespace QelUtilVideo {

/// Where the components of a 32-bit RGB pixel lie in memory.
struct PixelOrder {
  enum class Alpha { premultiplied, straight, absent };

  unsigned red = 2;  ///< byte within the pixel
  unsigned green = 1;
  unsigned blue = 0;
  unsigned alpha = 3;  ///< also where the unused byte lies
  Alpha alphaKind = Alpha::premultiplied;
};

/// The order that the layout describes; absent for anything but RGB with 8 bits per component and 32 per
/// pixel, sides from 1 to 65,535 and rows that hold their pixels.
[[nodiscard]] std::optional<PixelOrder> pixelOrderOf(const CGImageLayout& layout);

/// Red, green and blue of a pixel whose colours are multiplied by its alpha, without that; and back.
[[nodiscard]] std::uint8_t unpremultiplied(std::uint8_t color, std::uint8_t alpha);
[[nodiscard]] std::uint8_t premultiplied(std::uint8_t color, std::uint8_t alpha);

}  // namespace QelUtilVideo
