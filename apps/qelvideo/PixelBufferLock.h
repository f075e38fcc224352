#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

namespace qelvideo {

/// Brackets an access to a pixel buffer's bytes.
class PixelBufferLock {
 public:
  explicit PixelBufferLock(QelUtilVideo::CVPixelBuffer& buffer,
                           QelUtilVideo::CVPixelBufferLockFlags flags = 0)
      : buffer_(buffer), flags_(flags) {
    // Locking a live buffer succeeds always.
    static_cast<void>(QelUtilVideo::CVPixelBufferLockBaseAddress(buffer_, flags_));
  }
  PixelBufferLock(const PixelBufferLock&) = delete;
  PixelBufferLock& operator=(const PixelBufferLock&) = delete;
  ~PixelBufferLock() { static_cast<void>(QelUtilVideo::CVPixelBufferUnlockBaseAddress(buffer_, flags_)); }

 private:
  QelUtilVideo::CVPixelBuffer& buffer_;
  const QelUtilVideo::CVPixelBufferLockFlags flags_;
};

}  // namespace qelvideo
