#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstdint>

namespace QelUtilVideo {

/// A consistent snapshot of one frame. Immutable; read on the main thread or on a view's drawing thread.
class QEL_EXPORT RenderViewData {
 public:
  virtual ~RenderViewData() = default;

  /// Presentation time in seconds. It is the frame's identity: another timestamp means another frame.
  /// 0 stands for "no frame yet", so a source starts above it.
  [[nodiscard]] virtual double timestamp() const = 0;
  /// The picture, bi-planar 4:2:0, or null. Any other kind of buffer counts as no picture.
  [[nodiscard]] virtual CVPixelBufferRef pixelBuffer() const = 0;
  [[nodiscard]] virtual CGImagePropertyOrientation orientation() const = 0;
  /// The producing device and its kind, as the host numbers them.
  [[nodiscard]] virtual std::uint8_t deviceID() const = 0;
  [[nodiscard]] virtual std::uint8_t deviceType() const = 0;
};

}  // namespace QelUtilVideo
