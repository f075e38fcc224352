#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

namespace QelUtilVideo {

/// Hands out pixel buffers of one size and format and takes their memory back when the last reference
/// to each goes, on whichever thread that is. Buffers may outlive the pool. Any thread.
class QEL_EXPORT CVPixelBufferPool {
 public:
  /// Null when the size or format is one that `CVPixelBufferCreate` refuses.
  static std::shared_ptr<CVPixelBufferPool> make(std::size_t width, std::size_t height, OSType format);

  CVPixelBufferPool(const CVPixelBufferPool&) = delete;
  CVPixelBufferPool& operator=(const CVPixelBufferPool&) = delete;
  ~CVPixelBufferPool();

  /// A buffer whose contents are not set; null when there is no memory.
  [[nodiscard]] CVPixelBufferRef makePixelBuffer();

  [[nodiscard]] std::size_t width() const;
  [[nodiscard]] std::size_t height() const;
  [[nodiscard]] OSType format() const;

 private:
  struct State;
  explicit CVPixelBufferPool(std::shared_ptr<State> state);
  std::shared_ptr<State> state_;
};

}  // namespace QelUtilVideo
