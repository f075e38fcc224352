#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

namespace qelvideo {

/// Brackets an access to a pixel buffer's bytes.
class PixelBufferLock {
 public:
  explicit PixelBufferLock(QelUtilVideo::CVPixelBuffer& buffer) : buffer_(buffer) {
    // Locking a live buffer succeeds always.
    static_cast<void>(QelUtilVideo::CVPixelBufferLockBaseAddress(buffer_));
  }
  PixelBufferLock(const PixelBufferLock&) = delete;
  PixelBufferLock& operator=(const PixelBufferLock&) = delete;
  ~PixelBufferLock() { static_cast<void>(QelUtilVideo::CVPixelBufferUnlockBaseAddress(buffer_)); }

 private:
  QelUtilVideo::CVPixelBuffer& buffer_;
};

}  // namespace qelvideo
