#include "platform/linux/media/CameraFrameMaker.h"

#include "platform/linux/media/CodeRange.h"

#include <libyuv.h>

#include <algorithm>
#include <new>
#include <span>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kMostSide = 16384;
/// Few enough rows to stay in the cache; even, so that strips share no row of chroma.
constexpr std::size_t kStripRows = 16;

/// What one plane of a picture needs.
struct PlaneNeed {
  std::size_t rowBytes;
  std::size_t rows;
};

std::vector<PlaneNeed> needsOf(const CameraPicture& picture) {
  const std::size_t width = picture.width, height = picture.height;
  const std::size_t halfWidth = (width + 1) / 2, halfHeight = (height + 1) / 2;
  switch (picture.pixels) {
    case CameraPixels::nv12:
    case CameraPixels::nv21:
      return {{width, height}, {2 * halfWidth, halfHeight}};
    case CameraPixels::yuv420:
    case CameraPixels::yvu420:
      return {{width, height}, {halfWidth, halfHeight}, {halfWidth, halfHeight}};
    case CameraPixels::yuv422:
      return {{width, height}, {halfWidth, height}, {halfWidth, height}};
    case CameraPixels::yuyv:
    case CameraPixels::uyvy:
    case CameraPixels::yvyu:
    case CameraPixels::vyuy:
      return {{4 * halfWidth, height}};
    case CameraPixels::rgb24:
    case CameraPixels::bgr24:
      return {{3 * width, height}};
    case CameraPixels::bgrx:
    case CameraPixels::rgbx:
    case CameraPixels::xrgb:
      return {{4 * width, height}};
    case CameraPixels::grey:
      return {{width, height}};
    case CameraPixels::motionJPEG:
      break;
  }
  return {};
}

bool isWhole(const CameraPicture& picture) {
  if (picture.width == 0 || picture.height == 0 || picture.width > kMostSide || picture.height > kMostSide)
    return false;
  const std::vector<PlaneNeed> needs = needsOf(picture);
  for (std::size_t i = 0; i < needs.size(); ++i) {
    const CameraPlane& plane = picture.planes[i];
    constexpr std::size_t mostStride = std::size_t{1} << 24;
    if (!plane.bytes || plane.bytesPerRow < needs[i].rowBytes || plane.bytesPerRow > mostStride) return false;
    if (plane.size < plane.bytesPerRow * (needs[i].rows - 1) + needs[i].rowBytes) return false;
  }
  return true;
}

/// A plane as libyuv wants it.
struct Source {
  explicit Source(const CameraPlane& plane)
      : rows(reinterpret_cast<const std::uint8_t*>(plane.bytes)),
        stride(static_cast<int>(plane.bytesPerRow)) {}
  const std::uint8_t* rows;
  int stride;
};

struct Target {
  explicit Target(const PixelPlane& plane)
      : rows(reinterpret_cast<std::uint8_t*>(plane.baseAddress)),
        stride(static_cast<int>(plane.bytesPerRow)),
        width(static_cast<int>(plane.width)),
        height(static_cast<int>(plane.height)) {}
  std::uint8_t* rows;
  int stride;
  int width;
  int height;
};

}  // namespace

CVPixelBufferRef CameraFrameMaker::make(const CameraPicture& picture) try {
  if (picture.pixels == CameraPixels::motionJPEG) {
    const CameraPlane& file = picture.planes[0];
    return jpeg_.decode(std::span(file.bytes, file.bytes ? file.size : 0),
                        [this](std::size_t width, std::size_t height) { return newFrame(width, height); });
  }
  if (!isWhole(picture)) return nullptr;
  auto frame = convert(picture);
  if (!frame || !picture.isFullRange) return frame;
  const PixelPlane &luma = frame->planes()[0], &chroma = frame->planes()[1];
  narrowLuma({Target(luma).rows, luma.bytesPerRow, luma.width, luma.height});
  narrowChroma({Target(chroma).rows, chroma.bytesPerRow, 2 * chroma.width, chroma.height});
  return frame;
} catch (const std::bad_alloc&) {
  return nullptr;
}

CVPixelBufferRef CameraFrameMaker::newFrame(std::size_t width, std::size_t height) {
  if (!pool_ || pool_->width() != width || pool_->height() != height) {
    pool_ = CVPixelBufferPool::make(width, height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  }
  return pool_ ? pool_->makePixelBuffer() : nullptr;
}

CVPixelBufferRef CameraFrameMaker::convert(const CameraPicture& picture) {
  switch (picture.pixels) {
    case CameraPixels::yuyv:
    case CameraPixels::yvyu:
      return convertPacked(picture, kCVPixelFormatType_422YpCbCr8_yuvs);
    case CameraPixels::uyvy:
    case CameraPixels::vyuy:
      return convertPacked(picture, kCVPixelFormatType_422YpCbCr8);
    case CameraPixels::bgrx:
      return convertPacked(picture, kCVPixelFormatType_32BGRA);
    case CameraPixels::rgbx:
      return convertPacked(picture, kCVPixelFormatType_32RGBA);
    case CameraPixels::xrgb:
      return convertPacked(picture, kCVPixelFormatType_32ARGB);
    case CameraPixels::rgb24:
    case CameraPixels::bgr24:
      return convertColours(picture);
    default:
      return convertPlanes(picture);
  }
}

CVPixelBufferRef CameraFrameMaker::convertPacked(const CameraPicture& picture, OSType format) {
  CVPixelBufferRef wrapped;
  const CameraPlane& plane = picture.planes[0];
  // Nobody writes to it.
  if (CVPixelBufferCreateWithBytes(picture.width, picture.height, format, const_cast<std::byte*>(plane.bytes),
                                   plane.bytesPerRow, nullptr, wrapped) != kCVReturnSuccess) {
    return nullptr;
  }
  auto frame = converter_.convert(wrapped);
  if (!frame || (picture.pixels != CameraPixels::yvyu && picture.pixels != CameraPixels::vyuy)) return frame;
  const Target chroma(frame->planes()[1]);
  libyuv::SwapUVPlane(chroma.rows, chroma.stride, chroma.rows, chroma.stride, chroma.width, chroma.height);
  return frame;
}

CVPixelBufferRef CameraFrameMaker::convertPlanes(const CameraPicture& picture) {
  auto frame = newFrame(picture.width, picture.height);
  if (!frame) return nullptr;
  const Target luma(frame->planes()[0]), chroma(frame->planes()[1]);
  const Source y(picture.planes[0]), second(picture.planes[1]), third(picture.planes[2]);
  switch (picture.pixels) {
    case CameraPixels::nv12:
      libyuv::CopyPlane(y.rows, y.stride, luma.rows, luma.stride, luma.width, luma.height);
      libyuv::CopyPlane(second.rows, second.stride, chroma.rows, chroma.stride, 2 * chroma.width,
                        chroma.height);
      break;
    case CameraPixels::nv21:
      (void)libyuv::NV21ToNV12(y.rows, y.stride, second.rows, second.stride, luma.rows, luma.stride,
                               chroma.rows, chroma.stride, luma.width, luma.height);
      break;
    case CameraPixels::yuv420:
    case CameraPixels::yvu420: {
      const bool isBlueFirst = picture.pixels == CameraPixels::yuv420;
      const Source &blue = isBlueFirst ? second : third, &red = isBlueFirst ? third : second;
      (void)libyuv::I420ToNV12(y.rows, y.stride, blue.rows, blue.stride, red.rows, red.stride, luma.rows,
                               luma.stride, chroma.rows, chroma.stride, luma.width, luma.height);
      break;
    }
    case CameraPixels::yuv422:
      // The other order of the two, from the other order of the two.
      (void)libyuv::I422ToNV21(y.rows, y.stride, third.rows, third.stride, second.rows, second.stride,
                               luma.rows, luma.stride, chroma.rows, chroma.stride, luma.width, luma.height);
      break;
    default:
      libyuv::CopyPlane(y.rows, y.stride, luma.rows, luma.stride, luma.width, luma.height);
      libyuv::SetPlane(chroma.rows, chroma.stride, 2 * chroma.width, chroma.height, 128);
      break;
  }
  return frame;
}

CVPixelBufferRef CameraFrameMaker::convertColours(const CameraPicture& picture) {
  auto frame = newFrame(picture.width, picture.height);
  if (!frame) return nullptr;
  const Target luma(frame->planes()[0]), chroma(frame->planes()[1]);
  const Source source(picture.planes[0]);
  // libyuv names the order from the highest byte of a little-endian word.
  const auto widen = picture.pixels == CameraPixels::bgr24 ? libyuv::RGB24ToARGB : libyuv::RAWToARGB;
  const int stride = 4 * luma.width;
  strip_.resize(kStripRows * static_cast<std::size_t>(stride));
  for (std::size_t top = 0; top < picture.height; top += kStripRows) {
    const auto rows = static_cast<int>(std::min(kStripRows, picture.height - top));
    const auto at = static_cast<std::ptrdiff_t>(top);
    widen(source.rows + at * source.stride, source.stride, strip_.data(), stride, luma.width, rows);
    libyuv::ARGBToNV12(strip_.data(), stride, luma.rows + at * luma.stride, luma.stride,
                       chroma.rows + at / 2 * chroma.stride, chroma.stride, luma.width, rows);
  }
  return frame;
}

}  // namespace QelUtilVideo
