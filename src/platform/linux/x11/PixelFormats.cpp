#include "platform/linux/x11/PixelFormats.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <vector>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t kOpaque = 0xFF000000;

CGColorSpaceModel modelOf(const xcb_visualtype_t* visual, unsigned depth) {
  if (!visual) return depth > 8 ? CGColorSpaceModel::rgb : CGColorSpaceModel::indexed;
  switch (visual->_class) {
    case XCB_VISUAL_CLASS_TRUE_COLOR:
    case XCB_VISUAL_CLASS_DIRECT_COLOR:
      return CGColorSpaceModel::rgb;
    case XCB_VISUAL_CLASS_STATIC_GRAY:
    case XCB_VISUAL_CLASS_GRAY_SCALE:
      return CGColorSpaceModel::monochrome;
    default:
      return CGColorSpaceModel::indexed;
  }
}

void setMasks(X11PixelFormat& format, const xcb_visualtype_t* visual) {
  if (visual) {
    format.redMask = visual->red_mask;
    format.greenMask = visual->green_mask;
    format.blueMask = visual->blue_mask;
  } else if (format.depth == 30) {
    format.redMask = 0x3FF00000;
    format.greenMask = 0x000FFC00;
    format.blueMask = 0x000003FF;
  } else if (format.depth == 15 || format.depth == 16) {
    format.redMask = format.depth == 16 ? 0xF800 : 0x7C00;
    format.greenMask = format.depth == 16 ? 0x07E0 : 0x03E0;
    format.blueMask = 0x001F;
  }
}

/// One colour component of a pixel, brought to the range from 0 to 255 and to its place.
class Component {
 public:
  Component(std::uint32_t mask, unsigned targetShift)
      : shift_(mask ? static_cast<unsigned>(std::countr_zero(mask)) : 0), maximum_(mask >> shift_) {
    // A component has at most as many values as its mask says; no visual has more than 16 bits of one.
    maximum_ = std::min<std::uint32_t>(maximum_, 0xFFFF);
    values_.resize(std::size_t{maximum_} + 1);
    for (std::uint32_t i = 1; i <= maximum_; ++i)
      values_[i] = (i * 255 + maximum_ / 2) / maximum_ << targetShift;
  }
  std::uint32_t of(std::uint32_t pixel) const { return values_[pixel >> shift_ & maximum_]; }

 private:
  unsigned shift_;
  std::uint32_t maximum_;
  std::vector<std::uint32_t> values_;
};

template <std::size_t size>
std::uint32_t pixelAt(const std::byte* bytes, bool isSwapped) {
  static_assert(std::endian::native == std::endian::little);
  std::array<std::byte, sizeof(std::uint32_t)> word{};
  std::memcpy(word.data(), bytes, size);
  if (isSwapped) std::reverse(word.begin(), word.begin() + size);
  return std::bit_cast<std::uint32_t>(word);
}

template <std::size_t size>
void convertPixels(const X11PixelFormat& format, const std::byte* source, std::size_t width,
                   std::size_t height, std::byte* target) {
  const Component red(format.redMask, 16);
  const Component green(format.greenMask, 8);
  const Component blue(format.blueMask, 0);
  const std::size_t bytesPerRow = format.bytesPerRow(width);
  for (std::size_t y = 0; y < height; ++y) {
    const std::byte* pixel = source + y * bytesPerRow;
    for (std::size_t x = 0; x < width; ++x, pixel += size, target += sizeof(std::uint32_t)) {
      const std::uint32_t word = pixelAt<size>(pixel, format.isSwapped);
      const std::uint32_t usual = kOpaque | red.of(word) | green.of(word) | blue.of(word);
      std::memcpy(target, &usual, sizeof usual);
    }
  }
}

}  // namespace

std::size_t X11PixelFormat::bytesPerRow(std::size_t width) const {
  return (width * bitsPerPixel + rowPadding - 1) / rowPadding * rowPadding / 8;
}

bool X11PixelFormat::isUsual() const {
  return model == CGColorSpaceModel::rgb && bitsPerPixel == 32 && !isSwapped && redMask == 0xFF0000 &&
         greenMask == 0x00FF00 && blueMask == 0x0000FF;
}

std::optional<X11PixelFormat> X11PixelFormat::of(const X11Connection& connection, std::uint8_t depth,
                                                 xcb_visualid_t visualID) {
  const xcb_visualtype_t* visual = connection.visual(visualID);
  for (auto formats = xcb_setup_pixmap_formats_iterator(&connection.setup()); formats.rem > 0;
       xcb_format_next(&formats)) {
    if (formats.data->depth != depth || formats.data->scanline_pad == 0) continue;
    X11PixelFormat format;
    format.model = modelOf(visual, depth);
    format.depth = depth;
    format.bitsPerPixel = formats.data->bits_per_pixel;
    format.rowPadding = formats.data->scanline_pad;
    const bool isLittle = connection.setup().image_byte_order == XCB_IMAGE_ORDER_LSB_FIRST;
    format.isSwapped = isLittle != (std::endian::native == std::endian::little);
    setMasks(format, visual);
    return format;
  }
  return std::nullopt;
}

bool X11PixelFormat::isConvertible() const {
  return model == CGColorSpaceModel::rgb && (bitsPerPixel == 16 || bitsPerPixel == 24 || bitsPerPixel == 32);
}

bool convertToUsual(const X11PixelFormat& format, const std::byte* source, std::size_t width,
                    std::size_t height, std::byte* target) {
  if (!format.isConvertible()) return false;
  switch (format.bitsPerPixel) {
    case 16:
      convertPixels<2>(format, source, width, height, target);
      return true;
    case 24:
      convertPixels<3>(format, source, width, height, target);
      return true;
    case 32:
      convertPixels<4>(format, source, width, height, target);
      return true;
    default:
      return false;
  }
}

}  // namespace QelUtilVideo
