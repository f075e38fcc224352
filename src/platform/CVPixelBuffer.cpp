#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include "platform/PixelLayout.h"

#include <algorithm>
#include <new>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Longer rows could not be walked with 32-bit strides, which the conversion routines use.
constexpr std::size_t kMaximumBytesPerRow = std::size_t{1} << 28;

bool rowFits(std::size_t bytesPerRow, const PixelPlaneShape& shape) {
  return bytesPerRow >= shape.minimumRow && bytesPerRow <= kMaximumBytesPerRow &&
         bytesPerRow % shape.rowMultiple == 0;
}

bool planeFits(const PixelPlane& plane, const PixelPlaneShape& shape) {
  return plane.baseAddress && plane.width == shape.width && plane.height == shape.height &&
         rowFits(plane.bytesPerRow, shape);
}

const PixelPlane* planeOf(const CVPixelBuffer& buffer, std::size_t plane) {
  return plane < buffer.planes().size() ? &buffer.planes()[plane] : nullptr;
}

std::uint64_t newGeneration() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

}  // namespace

std::string pixelFormatName(OSType format) {
  if (format == kCVPixelFormatType_32ARGB) return "ARGB";
  const auto code = static_cast<std::uint32_t>(format);
  std::string characters;
  for (const unsigned shift : {24U, 16U, 8U, 0U}) {
    const std::uint32_t character = code >> shift & 0xFF;
    if (character < 0x20 || character > 0x7E) return std::to_string(code);
    characters += static_cast<char>(character);
  }
  return characters;
}

CVPixelBuffer::CVPixelBuffer(OSType format, std::size_t width, std::size_t height,
                             std::vector<PixelPlane> planes, ReleaseCallback release)
    : format_(format),
      width_(width),
      height_(height),
      planes_(std::move(planes)),
      release_(std::move(release)),
      generation_(newGeneration()) {}

CVPixelBuffer::~CVPixelBuffer() {
  if (!release_) return;
  try {
    release_();
  } catch (...) {
    // The bytes' owner failed to take them back; the buffer is gone all the same.
  }
}

CVReturn CVPixelBufferCreateWithBytes(std::size_t width, std::size_t height, OSType format, void* bytes,
                                      std::size_t bytesPerRow, CVPixelBuffer::ReleaseCallback release,
                                      CVPixelBufferRef& buffer) try {
  struct Packed : CVPixelBuffer {
    Packed(OSType code, std::size_t w, std::size_t h, PixelPlane picture, ReleaseCallback callback)
        : CVPixelBuffer(code, w, h, {picture}, std::move(callback)) {}
  };
  if (isPackedFormat(format) == false) return kCVReturnInvalidPixelFormat;
  if (const CVReturn refused = checkPixelBufferSize(width, height, format)) return refused;
  const PixelPlane picture{static_cast<std::byte*>(bytes), width, height, bytesPerRow};
  if (!planeFits(picture, pixelPlaneShapes(width, height, format).front())) {
    return kCVReturnInvalidArgument;
  }
  buffer = std::make_shared<Packed>(format, width, height, picture, std::move(release));
  return kCVReturnSuccess;
} catch (const std::bad_alloc&) {
  return kCVReturnAllocationFailed;
}

CVReturn CVPixelBufferCreateWithPlanarBytes(std::size_t width, std::size_t height, OSType format,
                                            std::vector<PixelPlane> planes,
                                            CVPixelBuffer::ReleaseCallback release,
                                            CVPixelBufferRef& buffer) try {
  struct Planar : CVPixelBuffer {
    Planar(OSType code, std::size_t w, std::size_t h, std::vector<PixelPlane> parts, ReleaseCallback callback)
        : CVPixelBuffer(code, w, h, std::move(parts), std::move(callback)) {}
  };
  if (isPackedFormat(format) == true) return kCVReturnInvalidPixelFormat;
  if (const CVReturn refused = checkPixelBufferSize(width, height, format)) return refused;
  const std::vector<PixelPlaneShape> shapes = pixelPlaneShapes(width, height, format);
  if (!std::equal(planes.begin(), planes.end(), shapes.begin(), shapes.end(), planeFits)) {
    return kCVReturnInvalidArgument;
  }
  buffer = std::make_shared<Planar>(format, width, height, std::move(planes), std::move(release));
  return kCVReturnSuccess;
} catch (const std::bad_alloc&) {
  return kCVReturnAllocationFailed;
}

CVReturn CVPixelBufferCreate(std::size_t width, std::size_t height, OSType format,
                             CVPixelBufferRef& buffer) try {
  if (const CVReturn refused = checkPixelBufferSize(width, height, format)) return refused;
  const PixelMemoryLayout layout(width, height, format);
  const std::shared_ptr<PixelMemory> memory = layout.allocate();
  if (!memory) return kCVReturnAllocationFailed;
  return wrapPixelMemory(width, height, format, layout, memory, nullptr, buffer);
} catch (const std::bad_alloc&) {
  return kCVReturnAllocationFailed;
}

CVReturn CVPixelBufferLockBaseAddress(CVPixelBuffer& buffer, CVPixelBufferLockFlags) {
  buffer.locks_.fetch_add(1);
  return kCVReturnSuccess;
}

CVReturn CVPixelBufferUnlockBaseAddress(CVPixelBuffer& buffer, CVPixelBufferLockFlags flags) {
  int locks = buffer.locks_.load();
  while (locks > 0 && !buffer.locks_.compare_exchange_weak(locks, locks - 1)) {
  }
  if (locks <= 0) return kCVReturnPixelBufferNotLocked;
  // An exchange: whoever sees this writer's number sees what the writers before wrote, too.
  if (!(flags & kCVPixelBufferLock_ReadOnly)) buffer.generation_.exchange(newGeneration());
  return kCVReturnSuccess;
}

std::size_t CVPixelBufferGetWidth(const CVPixelBuffer& buffer) { return buffer.width(); }
std::size_t CVPixelBufferGetHeight(const CVPixelBuffer& buffer) { return buffer.height(); }
OSType CVPixelBufferGetPixelFormatType(const CVPixelBuffer& buffer) { return buffer.format(); }

std::size_t CVPixelBufferGetPlaneCount(const CVPixelBuffer& buffer) {
  return isPackedFormat(buffer.format()) == true ? 0 : buffer.planes().size();
}

std::size_t CVPixelBufferGetBytesPerRow(const CVPixelBuffer& buffer) {
  return CVPixelBufferGetBytesPerRowOfPlane(buffer, 0);
}

std::byte* CVPixelBufferGetBaseAddress(const CVPixelBuffer& buffer) {
  return CVPixelBufferGetBaseAddressOfPlane(buffer, 0);
}

std::size_t CVPixelBufferGetWidthOfPlane(const CVPixelBuffer& buffer, std::size_t plane) {
  const PixelPlane* found = planeOf(buffer, plane);
  return found ? found->width : 0;
}

std::size_t CVPixelBufferGetHeightOfPlane(const CVPixelBuffer& buffer, std::size_t plane) {
  const PixelPlane* found = planeOf(buffer, plane);
  return found ? found->height : 0;
}

std::size_t CVPixelBufferGetBytesPerRowOfPlane(const CVPixelBuffer& buffer, std::size_t plane) {
  const PixelPlane* found = planeOf(buffer, plane);
  return found ? found->bytesPerRow : 0;
}

std::byte* CVPixelBufferGetBaseAddressOfPlane(const CVPixelBuffer& buffer, std::size_t plane) {
  const PixelPlane* found = planeOf(buffer, plane);
  return found ? found->baseAddress : nullptr;
}

}  // namespace QelUtilVideo
