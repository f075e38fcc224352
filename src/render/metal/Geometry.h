#pragma once

#include "platform/Metal.h"
#include "render/GeometryArithmetic.h"

#include <memory>
#include <string>

namespace QelUtilVideo::metal {

/// Places one view's picture on its drawable, and keeps the quad and the transform that follow in buffers of
/// the graphics processor. Main thread. Each frame: `updateOrientation`, then `resize`.
class Geometry {
 public:
  using Size = PixelSize<double>;

  Geometry(Clock& clock, std::string logName) : clock_(clock), logName_(std::move(logName)) {}

  /// Takes over a frame's orientation and size in pixels, and moves a running animation on.
  void updateOrientation(CGImagePropertyOrientation orientation, bool animated, Size image);
  /// Makes the buffers anew where something changed. Answers the image's size as it is shown, sides swapped
  /// where it lies on its side. Ends the process when the device has no memory for them.
  [[nodiscard]] Size resize(MTLDevice& device, Size drawable);

  /// There after the first `resize`: four corners of x, y, z, u, v each; and a 4 x 4 matrix, column after
  /// column.
  [[nodiscard]] const std::shared_ptr<MTLBuffer>& vertexBuffer() const { return vertexBuffer_; }
  [[nodiscard]] const std::shared_ptr<MTLBuffer>& transformBuffer() const { return transformBuffer_; }

  /// Degrees that the running animation still has to go; 0: none is running.
  [[nodiscard]] float rotateAngle() const { return turn_.rotateAngle; }

  [[nodiscard]] bool automaticallyAdjustsFitMode() const { return automaticallyAdjustsFitMode_; }
  /// While it is set, each placement chooses `fitInBounds` itself.
  void setAutomaticallyAdjustsFitMode(bool adjusts);
  [[nodiscard]] bool fitInBounds() const { return fitInBounds_; }
  void setFitInBounds(bool fit);

 private:
  void updateVertexBuffer(MTLDevice& device);
  void updateTransformBuffer(MTLDevice& device);

  Clock& clock_;
  const std::string logName_;
  Size drawableSize_;
  Size imageSize_;
  Turn turn_;
  bool automaticallyAdjustsFitMode_ = false;
  bool fitInBounds_ = false;
  bool needsUpdate_ = true;
  std::shared_ptr<MTLBuffer> vertexBuffer_;
  std::shared_ptr<MTLBuffer> transformBuffer_;
};

}  // namespace QelUtilVideo::metal
