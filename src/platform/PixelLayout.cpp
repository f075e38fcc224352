#include "platform/PixelLayout.h"

#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kMaximumSide = 65535;
constexpr std::size_t kRowAlignment = 64;

constexpr std::size_t roundedUp(std::size_t value, std::size_t multiple) {
  return (value + multiple - 1) / multiple * multiple;
}

bool isPlanarFormat(OSType format) {
  return format == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange ||
         format == kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;
}

}  // namespace

std::optional<bool> isPackedFormat(OSType format) {
  if (isPlanarFormat(format)) return false;
  switch (format) {
    case kCVPixelFormatType_32ARGB:
    case kCVPixelFormatType_32BGRA:
    case kCVPixelFormatType_32ABGR:
    case kCVPixelFormatType_32RGBA:
    case kCVPixelFormatType_422YpCbCr8:
    case kCVPixelFormatType_422YpCbCr8_yuvs:
      return true;
    default:
      return std::nullopt;
  }
}

std::vector<PixelPlaneShape> pixelPlaneShapes(std::size_t width, std::size_t height, OSType format) {
  const std::optional<bool> packed = isPackedFormat(format);
  if (!packed) return {};
  const std::size_t pairs = (width + 1) / 2;
  if (!*packed) return {{width, height, width, 1}, {pairs, (height + 1) / 2, 2 * pairs, 2}};
  if (format == kCVPixelFormatType_422YpCbCr8 || format == kCVPixelFormatType_422YpCbCr8_yuvs) {
    return {{width, height, 4 * pairs, 1}};
  }
  return {{width, height, 4 * width, 1}};
}

CVReturn checkPixelBufferSize(std::size_t width, std::size_t height, OSType format) {
  if (!isPackedFormat(format)) return kCVReturnInvalidPixelFormat;
  if (width == 0 || height == 0 || width > kMaximumSide || height > kMaximumSide) {
    return kCVReturnInvalidSize;
  }
  return kCVReturnSuccess;
}

PixelMemoryLayout::PixelMemoryLayout(std::size_t width, std::size_t height, OSType format) {
  for (const PixelPlaneShape& shape : pixelPlaneShapes(width, height, format)) {
    const std::size_t bytesPerRow = roundedUp(shape.minimumRow, kRowAlignment);
    planes.push_back({nullptr, shape.width, shape.height, bytesPerRow});
    offsets.push_back(size);
    size += bytesPerRow * shape.height;
  }
}

std::shared_ptr<PixelMemory> PixelMemoryLayout::allocate() const { return PixelMemory::allocate(size); }

std::vector<PixelPlane> PixelMemoryLayout::placedAt(std::byte* memory) const {
  std::vector<PixelPlane> placed = planes;
  for (std::size_t i = 0; i < placed.size(); ++i) placed[i].baseAddress = memory + offsets[i];
  return placed;
}

CVReturn wrapPixelMemory(std::size_t width, std::size_t height, OSType format,
                         const PixelMemoryLayout& layout, std::shared_ptr<PixelMemory> memory,
                         CVPixelBuffer::ReleaseCallback release, CVPixelBufferRef& buffer) {
  std::vector<PixelPlane> planes = layout.placedAt(memory->bytes());
  CVPixelBufferRef made;
  const CVReturn result =
      isPackedFormat(format) == true
          ? CVPixelBufferCreateWithBytes(width, height, format, memory->bytes(), planes.front().bytesPerRow,
                                         std::move(release), made)
          : CVPixelBufferCreateWithPlanarBytes(width, height, format, std::move(planes), std::move(release),
                                               made);
  if (result != kCVReturnSuccess) return result;
  PixelMemory::keep(std::move(memory), *made);
  buffer = std::move(made);
  return kCVReturnSuccess;
}

}  // namespace QelUtilVideo
