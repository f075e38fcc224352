#pragma once

#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace QelUtilVideo {

/// How the X server lays out the pixels of a drawable.
struct X11PixelFormat {
  CGColorSpaceModel model = CGColorSpaceModel::rgb;
  unsigned depth = 24;
  unsigned bitsPerPixel = 32;
  unsigned rowPadding = 32;  ///< a row ends at a multiple of this many bits
  bool isSwapped = false;    ///< pixels have the other byte order than this machine's words
  std::uint32_t redMask = 0xFF0000;
  std::uint32_t greenMask = 0x00FF00;
  std::uint32_t blueMask = 0x0000FF;

  [[nodiscard]] std::size_t bytesPerRow(std::size_t width) const;
  /// Whether the bytes are blue, green, red and a fourth one, as in the library's usual picture.
  [[nodiscard]] bool isUsual() const;
  /// Whether `convertToUsual` knows the format.
  [[nodiscard]] bool isConvertible() const;

  /// The format of a drawable of this depth and visual; absent when the server names no such format.
  /// Without a visual (a pixmap), colours are where the default layout of the depth has them.
  static std::optional<X11PixelFormat> of(const X11Connection& connection, std::uint8_t depth,
                                          xcb_visualid_t visual);
};

/// Converts RGB pixels of 16, 24 or 32 bits into the library's usual picture, opaque, rows without gaps.
/// False for other formats.
[[nodiscard]] bool convertToUsual(const X11PixelFormat& format, const std::byte* source, std::size_t width,
                                  std::size_t height, std::byte* target);

}  // namespace QelUtilVideo
