#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <libyuv.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace QelUtilVideo {

namespace {

constexpr OSType kVideoRange = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
constexpr OSType kFullRange = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;

/// Few enough that what is shuffled stays in the cache until it is converted; even, so that strips share
/// no chroma row.
constexpr std::size_t kStripRows = 16;

/// A plane as libyuv wants it.
struct Rows {
  std::uint8_t* first = nullptr;
  int stride = 0;
  int width = 0;
  int height = 0;

  explicit Rows(const PixelPlane& plane)
      : first(reinterpret_cast<std::uint8_t*>(plane.baseAddress)),
        stride(static_cast<int>(plane.bytesPerRow)),
        width(static_cast<int>(plane.width)),
        height(static_cast<int>(plane.height)) {}

  std::uint8_t* row(std::size_t index) const { return first + index * static_cast<std::size_t>(stride); }
};

/// Keeps a buffer locked.
class LockedPixels {
 public:
  explicit LockedPixels(CVPixelBuffer& buffer) : buffer_(buffer) {
    (void)CVPixelBufferLockBaseAddress(buffer);
  }
  LockedPixels(const LockedPixels&) = delete;
  LockedPixels& operator=(const LockedPixels&) = delete;
  ~LockedPixels() { CVPixelBufferUnlockBaseAddress(buffer_); }

  Rows plane(std::size_t index) const { return Rows(buffer_.planes()[index]); }

 private:
  CVPixelBuffer& buffer_;
};

/// Where one range of code values lies.
struct CodeRange {
  double black = 0;
  double lumaExtent = 255;
  double chromaExtent = 255;
};
constexpr CodeRange kVideoCodes{16, 219, 224};
constexpr CodeRange kFullCodes{0, 255, 255};

/// What each code value of one range becomes in the other.
struct RangeTables {
  std::array<std::uint8_t, 256> luma{};
  std::array<std::uint8_t, 256> chroma{};

  RangeTables(const CodeRange& from, const CodeRange& to) {
    for (std::size_t i = 0; i < luma.size(); ++i) {
      const auto code = static_cast<double>(i);
      luma[i] = rounded((code - from.black) * to.lumaExtent / from.lumaExtent + to.black);
      chroma[i] = rounded((code - 128) * to.chromaExtent / from.chromaExtent + 128);
    }
  }

 private:
  static std::uint8_t rounded(double value) {
    return static_cast<std::uint8_t>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
  }
};

const RangeTables& rangeTables(OSType target) {
  static const RangeTables toFull(kVideoCodes, kFullCodes);
  static const RangeTables toVideo(kFullCodes, kVideoCodes);
  return target == kFullRange ? toFull : toVideo;
}

void mapPlane(const Rows& from, const Rows& to, int bytesPerPixel,
              const std::array<std::uint8_t, 256>& table) {
  const auto bytes = static_cast<std::size_t>(from.width) * static_cast<std::size_t>(bytesPerPixel);
  for (std::size_t y = 0; y < static_cast<std::size_t>(from.height); ++y) {
    std::transform(from.row(y), from.row(y) + bytes, to.row(y),
                   [&](std::uint8_t code) { return table[code]; });
  }
}

/// Changes the range of a bi-planar picture; source and target may be the same.
void convertRange(const LockedPixels& source, const LockedPixels& target, OSType range) {
  const RangeTables& tables = rangeTables(range);
  mapPlane(source.plane(0), target.plane(0), 1, tables.luma);
  mapPlane(source.plane(1), target.plane(1), 2, tables.chroma);
}

void convertPackedYUV(const LockedPixels& source, const LockedPixels& target, OSType from, OSType to) {
  const Rows packed = source.plane(0);
  const Rows luma = target.plane(0);
  const Rows chroma = target.plane(1);
  const auto convert = from == kCVPixelFormatType_422YpCbCr8 ? libyuv::UYVYToNV12 : libyuv::YUY2ToNV12;
  convert(packed.first, packed.stride, luma.first, luma.stride, chroma.first, chroma.stride, packed.width,
          packed.height);
  if (to == kFullRange) convertRange(target, target, kFullRange);
}

using Shuffle = int (*)(const std::uint8_t* source, int sourceStride, std::uint8_t* target, int targetStride,
                        int width, int height);

/// What brings the format's bytes into the order blue, green, red, alpha; null where they already are.
/// libyuv names the order from the highest byte of a little-endian word.
Shuffle shuffleOf(OSType format) {
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

/// Converts pictures of red, green and blue a strip at a time.
class StripConverter {
 public:
  StripConverter(const LockedPixels& source, const LockedPixels& target, OSType from, OSType to)
      : picture_(source.plane(0)),
        luma_(target.plane(0)),
        chroma_(target.plane(1)),
        shuffle_(shuffleOf(from)),
        isFullRange_(to == kFullRange) {
    if (shuffle_) shuffled_.resize(kStripRows * static_cast<std::size_t>(picture_.width) * 4);
    if (isFullRange_) separate_.resize(2 * (kStripRows / 2) * static_cast<std::size_t>(chroma_.width));
  }

  void convert() {
    const auto height = static_cast<std::size_t>(picture_.height);
    for (std::size_t y = 0; y < height; y += kStripRows) {
      convertStrip(y, static_cast<int>(std::min(kStripRows, height - y)));
    }
  }

 private:
  void convertStrip(std::size_t y, int rows) {
    const std::uint8_t* pixels = picture_.row(y);
    int stride = picture_.stride;
    if (shuffle_) {
      shuffle_(pixels, stride, shuffled_.data(), 4 * picture_.width, picture_.width, rows);
      pixels = shuffled_.data();
      stride = 4 * picture_.width;
    }
    std::uint8_t* luma = luma_.row(y);
    std::uint8_t* chroma = chroma_.row(y / 2);
    if (!isFullRange_) {
      libyuv::ARGBToNV12(pixels, stride, luma, luma_.stride, chroma, chroma_.stride, picture_.width, rows);
      return;
    }
    std::uint8_t* blueDifference = separate_.data();
    std::uint8_t* redDifference = separate_.data() + separate_.size() / 2;
    libyuv::ARGBToJ420(pixels, stride, luma, luma_.stride, blueDifference, chroma_.width, redDifference,
                       chroma_.width, picture_.width, rows);
    libyuv::MergeUVPlane(blueDifference, chroma_.width, redDifference, chroma_.width, chroma, chroma_.stride,
                         chroma_.width, (rows + 1) / 2);
  }

  Rows picture_;
  Rows luma_;
  Rows chroma_;
  Shuffle shuffle_;
  bool isFullRange_;
  std::vector<std::uint8_t> shuffled_;
  std::vector<std::uint8_t> separate_;
};

void convertPixels(const LockedPixels& source, const LockedPixels& target, OSType from, OSType to) {
  switch (from) {
    case kVideoRange:
    case kFullRange:
      return convertRange(source, target, to);
    case kCVPixelFormatType_422YpCbCr8:
    case kCVPixelFormatType_422YpCbCr8_yuvs:
      return convertPackedYUV(source, target, from, to);
    default:
      return StripConverter(source, target, from, to).convert();
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
    convertPixels(LockedPixels(*source), LockedPixels(*converted), source->format(), format_);
  }
  return converted;
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace QelUtilVideo
