#include "platform/linux/media/CameraFrameMaker.h"

#include "platform/linux/media/CodeRange.h"
#include "platform/linux/media/LockedPixels.h"
#include "platform/linux/media/StripConverter.h"

#include <libyuv.h>

#include <array>
#include <cstdint>
#include <new>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kLargestSide = 16384;
/// Longer rows could not be walked with libyuv's strides.
constexpr std::size_t kLongestRow = std::size_t{1} << 28;

bool isSide(std::size_t length) { return length >= 1 && length <= kLargestSide; }

/// What the picture's size asks of a plane; of one that the pixels do not have, nothing.
struct PlaneNeeds {
  std::size_t rowBytes = 0;
  std::size_t rows = 0;

  [[nodiscard]] bool areMetBy(const CameraPlane& plane) const {
    if (rows == 0) return true;
    if (!plane.bytes || plane.bytesPerRow < rowBytes || plane.bytesPerRow > kLongestRow) return false;
    return plane.size >= plane.bytesPerRow * (rows - 1) + rowBytes;
  }
};

/// Of pixels that nobody knows, no plane has any rows.
std::array<PlaneNeeds, 3> needsOf(CameraPixels pixels, std::size_t width, std::size_t height) {
  const std::size_t halfWidth = (width + 1) / 2;
  const std::size_t halfHeight = (height + 1) / 2;
  switch (pixels) {
    case CameraPixels::nv12:
    case CameraPixels::nv21:
      return {{{width, height}, {2 * halfWidth, halfHeight}, {}}};
    case CameraPixels::yuyv:
    case CameraPixels::uyvy:
    case CameraPixels::yvyu:
    case CameraPixels::vyuy:
      return {{{4 * halfWidth, height}, {}, {}}};
    case CameraPixels::yuv420:
    case CameraPixels::yvu420:
      return {{{width, height}, {halfWidth, halfHeight}, {halfWidth, halfHeight}}};
    case CameraPixels::yuv422:
      return {{{width, height}, {halfWidth, height}, {halfWidth, height}}};
    case CameraPixels::rgb24:
    case CameraPixels::bgr24:
      return {{{3 * width, height}, {}, {}}};
    case CameraPixels::bgrx:
    case CameraPixels::rgbx:
    case CameraPixels::xrgb:
      return {{{4 * width, height}, {}, {}}};
    case CameraPixels::grey:
      return {{{width, height}, {}, {}}};
    case CameraPixels::motionJPEG:
      break;
  }
  return {};
}

bool hasItsBytes(const CameraPicture& picture) {
  const auto needs = needsOf(picture.pixels, picture.width, picture.height);
  if (needs[0].rows == 0) return false;
  for (std::size_t i = 0; i < needs.size(); ++i) {
    if (!needs[i].areMetBy(picture.planes[i])) return false;
  }
  return true;
}

/// A picture's planes, whose bytes have been counted, and the frame's.
struct Conversion {
  std::array<SourceRows, 3> from;
  Rows luma;
  Rows chroma;

  Conversion(const CameraPicture& picture, const LockedPixels& frame)
      : luma(frame.plane(0)), chroma(frame.plane(1)) {
    for (std::size_t i = 0; i < from.size(); ++i) {
      const CameraPlane& plane = picture.planes[i];
      from[i] = {reinterpret_cast<const std::uint8_t*>(plane.bytes), static_cast<int>(plane.bytesPerRow),
                 luma.width, luma.height};
    }
  }

  void copyLuma() const {
    libyuv::CopyPlane(from[0].first, from[0].stride, luma.first, luma.stride, luma.width, luma.height);
  }
  void copyBiPlanar() const {
    copyLuma();
    libyuv::CopyPlane(from[1].first, from[1].stride, chroma.first, chroma.stride, 2 * chroma.width,
                      chroma.height);
  }
  void copyGrey() const {
    copyLuma();
    libyuv::SetPlane(chroma.first, chroma.stride, 2 * chroma.width, chroma.height, 128);
  }
  void swapBiPlanar() const {
    libyuv::NV21ToNV12(from[0].first, from[0].stride, from[1].first, from[1].stride, luma.first, luma.stride,
                       chroma.first, chroma.stride, luma.width, luma.height);
  }
  /// `convert` is one of libyuv's functions for packed 4:2:2.
  template <class Convert>
  void unpack(Convert convert) const {
    convert(from[0].first, from[0].stride, luma.first, luma.stride, chroma.first, chroma.stride, luma.width,
            luma.height);
  }
  void swapChroma() const {
    libyuv::SwapUVPlane(chroma.first, chroma.stride, chroma.first, chroma.stride, chroma.width,
                        chroma.height);
  }
  /// `convert` is one of libyuv's functions for three planes; it interleaves `first` before `second`.
  template <class Convert>
  void interleave(Convert convert, const SourceRows& first, const SourceRows& second) const {
    convert(from[0].first, from[0].stride, first.first, first.stride, second.first, second.stride, luma.first,
            luma.stride, chroma.first, chroma.stride, luma.width, luma.height);
  }
};

/// Nothing when the pixels are red, green and blue.
bool convertYUV(CameraPixels pixels, const Conversion& conversion) {
  const auto& [luma, second, third] = conversion.from;
  switch (pixels) {
    case CameraPixels::nv12:
      conversion.copyBiPlanar();
      return true;
    case CameraPixels::nv21:
      conversion.swapBiPlanar();
      return true;
    case CameraPixels::yuyv:
      conversion.unpack(libyuv::YUY2ToNV12);
      return true;
    case CameraPixels::uyvy:
      conversion.unpack(libyuv::UYVYToNV12);
      return true;
    case CameraPixels::yvyu:
      conversion.unpack(libyuv::YUY2ToNV12);
      conversion.swapChroma();
      return true;
    case CameraPixels::vyuy:
      conversion.unpack(libyuv::UYVYToNV12);
      conversion.swapChroma();
      return true;
    case CameraPixels::yuv420:
      conversion.interleave(libyuv::I420ToNV12, second, third);
      return true;
    case CameraPixels::yvu420:
      conversion.interleave(libyuv::I420ToNV12, third, second);
      return true;
    case CameraPixels::yuv422:
      // Its order of chroma is Cr, Cb: what it takes for Cb comes second.
      conversion.interleave(libyuv::I422ToNV21, third, second);
      return true;
    case CameraPixels::grey:
      conversion.copyGrey();
      return true;
    default:
      return false;
  }
}

/// What brings the pixels' bytes into the order blue, green, red, anything; null where they already are.
/// libyuv names an order from the highest byte of a little-endian word, so that its RGB24 begins with blue;
/// what begins with red it calls RAW.
StripConverter::Shuffle shuffleOf(CameraPixels pixels) {
  switch (pixels) {
    case CameraPixels::rgb24:
      return libyuv::RAWToARGB;
    case CameraPixels::bgr24:
      return libyuv::RGB24ToARGB;
    case CameraPixels::rgbx:
      return libyuv::ABGRToARGB;
    case CameraPixels::xrgb:
      return libyuv::BGRAToARGB;
    default:
      return nullptr;
  }
}

void convert(const CameraPicture& picture, const LockedPixels& frame) {
  const Conversion conversion(picture, frame);
  if (!convertYUV(picture.pixels, conversion)) {
    StripConverter(conversion.from[0], shuffleOf(picture.pixels), frame, false).convert();
    return;
  }
  if (!picture.isFullRange) return;
  lumaToVideoRange(conversion.luma);
  chromaToVideoRange(conversion.chroma);
}

}  // namespace

CVPixelBufferRef CameraFrameMaker::make(const CameraPicture& picture) try {
  if (!isSide(picture.width) || !isSide(picture.height)) return nullptr;
  if (picture.pixels == CameraPixels::motionJPEG) {
    const CameraPlane& file = picture.planes[0];
    return jpeg_.decode({file.bytes, file.bytes ? file.size : 0},
                        [this](std::size_t width, std::size_t height) { return newFrame(width, height); });
  }
  if (!hasItsBytes(picture)) return nullptr;
  CVPixelBufferRef frame = newFrame(picture.width, picture.height);
  if (frame) convert(picture, LockedPixels(*frame));
  return frame;
} catch (const std::bad_alloc&) {
  return nullptr;
}

CVPixelBufferRef CameraFrameMaker::newFrame(std::size_t width, std::size_t height) {
  if (!isSide(width) || !isSide(height)) return nullptr;
  if (!pool_ || pool_->width() != width || pool_->height() != height) {
    pool_ = CVPixelBufferPool::make(width, height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  }
  return pool_ ? pool_->makePixelBuffer() : nullptr;
}

}  // namespace QelUtilVideo
