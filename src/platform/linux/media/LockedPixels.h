#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <cstdint>

namespace QelUtilVideo {

/// A plane as libyuv wants it. `Byte` is const where the plane is only read.
template <class Byte>
struct BasicRows {
  Byte* first = nullptr;
  int stride = 0;  ///< distance of two rows in bytes
  int width = 0;   ///< in pixels of the plane
  int height = 0;

  [[nodiscard]] Byte* row(std::size_t index) const {
    return first + index * static_cast<std::size_t>(stride);
  }
  operator BasicRows<const Byte>() const { return {first, stride, width, height}; }
};
using Rows = BasicRows<std::uint8_t>;
using SourceRows = BasicRows<const std::uint8_t>;

/// Keeps a buffer locked for as long as it lives, and gives its planes.
class LockedPixels {
 public:
  explicit LockedPixels(CVPixelBuffer& buffer, CVPixelBufferLockFlags flags = 0)
      : buffer_(buffer), flags_(flags) {
    (void)CVPixelBufferLockBaseAddress(buffer, flags);
  }
  LockedPixels(const LockedPixels&) = delete;
  LockedPixels& operator=(const LockedPixels&) = delete;
  ~LockedPixels() { CVPixelBufferUnlockBaseAddress(buffer_, flags_); }

  [[nodiscard]] Rows plane(std::size_t index) const {
    const PixelPlane& plane = buffer_.planes()[index];
    return {reinterpret_cast<std::uint8_t*>(plane.baseAddress), static_cast<int>(plane.bytesPerRow),
            static_cast<int>(plane.width), static_cast<int>(plane.height)};
  }

 private:
  CVPixelBuffer& buffer_;
  const CVPixelBufferLockFlags flags_;
};

}  // namespace QelUtilVideo
