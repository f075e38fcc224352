#include "platform/linux/media/PixelOrder.h"

#include <algorithm>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kMaximumSide = 65535;

bool alphaComesFirst(CGImageAlphaInfo info) {
  return info == CGImageAlphaInfo::premultipliedFirst || info == CGImageAlphaInfo::first ||
         info == CGImageAlphaInfo::noneSkipFirst;
}

PixelOrder::Alpha alphaKindOf(CGImageAlphaInfo info) {
  switch (info) {
    case CGImageAlphaInfo::premultipliedFirst:
    case CGImageAlphaInfo::premultipliedLast:
      return PixelOrder::Alpha::premultiplied;
    case CGImageAlphaInfo::first:
    case CGImageAlphaInfo::last:
      return PixelOrder::Alpha::straight;
    default:
      return PixelOrder::Alpha::absent;
  }
}

}  // namespace

std::optional<PixelOrder> pixelOrderOf(const CGImageLayout& layout) {
  const auto info = static_cast<CGImageAlphaInfo>(layout.bitmapInfo & kCGBitmapAlphaInfoMask);
  if (layout.colorSpaceModel != CGColorSpaceModel::rgb || layout.bitsPerComponent != 8 ||
      layout.bitsPerPixel != 32 || info >= CGImageAlphaInfo::only) {
    return std::nullopt;
  }
  if (layout.width == 0 || layout.height == 0 || layout.width > kMaximumSide ||
      layout.height > kMaximumSide || layout.bytesPerRow < 4 * layout.width) {
    return std::nullopt;
  }
  PixelOrder order = alphaComesFirst(info) ? PixelOrder{1, 2, 3, 0} : PixelOrder{0, 1, 2, 3};
  if (layout.bitmapInfo & kCGBitmapByteOrder32Little) {
    for (unsigned* byte : {&order.red, &order.green, &order.blue, &order.alpha}) *byte = 3 - *byte;
  }
  order.alphaKind = alphaKindOf(info);
  return order;
}

std::uint8_t unpremultiplied(std::uint8_t color, std::uint8_t alpha) {
  if (alpha == 0) return 0;
  return static_cast<std::uint8_t>(std::min(255, (color * 255 + alpha / 2) / alpha));
}

std::uint8_t premultiplied(std::uint8_t color, std::uint8_t alpha) {
  return static_cast<std::uint8_t>((color * alpha + 127) / 255);
}

}  // namespace QelUtilVideo
