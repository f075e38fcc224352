#pragma once

#include "platform/CALayer.h"
#include "platform/Metal.h"

#include <functional>
#include <memory>

namespace QelUtilVideo {

class Dispatch;

/// A layer whose pictures a graphics processor makes: on its view's part of a window, or off screen. Main
/// thread; the last reference may be dropped on any.
class CAMetalLayer final : public CALayer {
 public:
  CAMetalLayer(Dispatch& dispatch, std::shared_ptr<MTLDevice> device);
  ~CAMetalLayer() override;

  /// Of that size in pixels; null when there is none now.
  [[nodiscard]] std::shared_ptr<CAMetalDrawable> nextDrawable(CGSize pixels);
  /// Calls `draw` on the main thread at the next opportunity after a mark, once for all marks since. Marks
  /// wait while the layer is not visible.
  void setDrawHandler(std::function<void()> draw) { draw_ = std::move(draw); }
  /// A drawing ended. One that presented nothing is made up for after a refresh, if there may be a drawable
  /// then.
  void didDraw(bool presented);

  /// Whether what lies behind the layer never shows through.
  [[nodiscard]] bool isOpaque() const { return isOpaque_; }
  void setOpaque(bool opaque) { isOpaque_ = opaque; }

  // CALayer
  void setVisible(bool visible) override;
  void screenChanged() override {}
  void boundsChanged() override { setNeedsDisplay(); }
  void setNeedsDisplay() override;
  void willLeaveView() override { surface_.reset(); }
  [[nodiscard]] CGImageRef contents() override;

  // ViewSurfaceClient
  void surfaceExposed() override { setNeedsDisplay(); }
  void surfaceOccluded(bool occluded) override;

 protected:
  void willLeaveSurface() override { surface_.reset(); }
  void didChangeSurface() override { setNeedsDisplay(); }

 private:
  void schedule(double delay);
  void drawMarked();

  Dispatch& dispatch_;
  const std::shared_ptr<MTLDevice> device_;
  std::function<void()> draw_;
  std::unique_ptr<MetalSurface> surface_;  ///< made when a drawable is asked for
  bool isOpaque_ = true;
  bool isVisible_ = false;
  bool isMarked_ = false;
  bool isScheduled_ = false;
};

}  // namespace QelUtilVideo
