#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include "platform/linux/media/CodeRange.h"
#include "platform/linux/media/LockedPixels.h"
#include "platform/linux/media/StripConverter.h"

#include <libyuv.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <new>

namespace QelUtilVideo {

namespace {

constexpr OSType kVideoRange = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
constexpr OSType kFullRange = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;

/// What each code value of video range is in full range.
struct FullRangeTables {
  std::array<std::uint8_t, 256> luma{};
  std::array<std::uint8_t, 256> chroma{};

  FullRangeTables() {
    for (std::size_t i = 0; i < luma.size(); ++i) {
      const auto code = static_cast<double>(i);
      luma[i] = rounded((code - 16) * 255 / 219);
      chroma[i] = rounded((code - 128) * 255 / 224 + 128);
    }
  }

 private:
  static std::uint8_t rounded(double value) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
  }
};

void mapPlane(const Rows& from, const Rows& to, int bytesPerPixel,
              const std::array<std::uint8_t, 256>& table) {
  const auto bytes = static_cast<std::size_t>(from.width) * static_cast<std::size_t>(bytesPerPixel);
  for (std::size_t y = 0; y < static_cast<std::size_t>(from.height); ++y) {
    std::transform(from.row(y), from.row(y) + bytes, to.row(y),
                   [&](std::uint8_t code) { return table[code]; });
  }
}

/// Source and target may be the same.
void convertToFullRange(const LockedPixels& source, const LockedPixels& target) {
  static const FullRangeTables tables;
  mapPlane(source.plane(0), target.plane(0), 1, tables.luma);
  mapPlane(source.plane(1), target.plane(1), 2, tables.chroma);
}

void convertToVideoRange(const LockedPixels& source, const LockedPixels& target) {
  const Rows luma = source.plane(0), newLuma = target.plane(0);
  const Rows chroma = source.plane(1), newChroma = target.plane(1);
  libyuv::CopyPlane(luma.first, luma.stride, newLuma.first, newLuma.stride, luma.width, luma.height);
  libyuv::CopyPlane(chroma.first, chroma.stride, newChroma.first, newChroma.stride, 2 * chroma.width,
                    chroma.height);
  lumaToVideoRange(newLuma);
  chromaToVideoRange(newChroma);
}

void convertPackedYUV(const LockedPixels& source, const LockedPixels& target, OSType from, OSType to) {
  const Rows packed = source.plane(0);
  const Rows luma = target.plane(0);
  const Rows chroma = target.plane(1);
  const auto convert = from == kCVPixelFormatType_422YpCbCr8 ? libyuv::UYVYToNV12 : libyuv::YUY2ToNV12;
  convert(packed.first, packed.stride, luma.first, luma.stride, chroma.first, chroma.stride, packed.width,
          packed.height);
  if (to == kFullRange) convertToFullRange(target, target);
}

/// What brings the format's bytes into the order blue, green, red, alpha; null where they already are.
/// libyuv names the order from the highest byte of a little-endian word.
StripConverter::Shuffle shuffleOf(OSType format) {
  switch (format) {
    case kCVPixelFormatType_32ARGB:
      return libyuv::BGRAToARGB;
    case kCVPixelFormatType_32RGBA:
      return libyuv::ABGRToARGB;
    case kCVPixelFormatType_32ABGR:
      return libyuv::RGBAToARGB;
    default:
      return nullptr;
  }
}

void convertPixels(const LockedPixels& source, const LockedPixels& target, OSType from, OSType to) {
  switch (from) {
    case kVideoRange:
    case kFullRange:
      return to == kFullRange ? convertToFullRange(source, target) : convertToVideoRange(source, target);
    case kCVPixelFormatType_422YpCbCr8:
    case kCVPixelFormatType_422YpCbCr8_yuvs:
      return convertPackedYUV(source, target, from, to);
    default:
      return StripConverter(source.plane(0), shuffleOf(from), target, to == kFullRange).convert();
  }
}

}  // namespace

PixelBufferConverter::PixelBufferConverter(OSType format)
    : format_(format == kFullRange ? kFullRange : kVideoRange) {}

PixelBufferConverter::~PixelBufferConverter() = default;

CVPixelBufferRef PixelBufferConverter::convert(const CVPixelBufferRef& source) try {
  if (!source || source->format() == format_) return source;
  if (!pool_ || pool_->width() != source->width() || pool_->height() != source->height()) {
    pool_ = CVPixelBufferPool::make(source->width(), source->height(), format_);
  }
  CVPixelBufferRef converted = pool_ ? pool_->makePixelBuffer() : nullptr;
  if (converted) {
    convertPixels(LockedPixels(*source, kCVPixelBufferLock_ReadOnly), LockedPixels(*converted),
                  source->format(), format_);
  }
  return converted;
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace QelUtilVideo
