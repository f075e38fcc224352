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

  /// Calls `draw` on the main thread at the next opportunity after a mark, once for all marks since. Marks
  /// wait while the layer is not visible, and when nothing could be presented they stay for some later
  /// refreshes. A new layer is marked.
  void setDrawHandler(std::function<void()> draw) { draw_ = std::move(draw); }
  /// Runs `draw`, which may present the current drawable; not while it runs already, as when it serves the
  /// main loop.
  void perform(const std::function<void()>& draw);
  /// What the coming drawing goes to: the same one until it is presented, or the layer asks for another size
  /// (pixels) in between drawings. Null when there is none now.
  [[nodiscard]] std::shared_ptr<CAMetalDrawable> currentDrawable(CGSize pixels);

  /// Whether what lies behind the layer never shows through.
  [[nodiscard]] bool isOpaque() const { return isOpaque_; }
  void setOpaque(bool opaque) { isOpaque_ = opaque; }

  // CALayer
  void setVisible(bool visible) override;
  void screenChanged() override {}
  void boundsChanged() override { setNeedsDisplay(); }
  void setNeedsDisplay() override;
  void willLeaveView() override { dropSurface(); }
  [[nodiscard]] CGImageRef contents() override;

  // ViewSurfaceClient
  void surfaceExposed() override { setNeedsDisplay(); }
  void surfaceOccluded(bool occluded) override;

 protected:
  void willLeaveSurface() override { dropSurface(); }
  void didChangeSurface() override;

 private:
  [[nodiscard]] std::shared_ptr<CAMetalDrawable> nextDrawable(CGSize pixels);
  void dropSurface();
  void schedule(double delay);
  void drawMarked();
  void tryAgainLater();

  Dispatch& dispatch_;
  const std::shared_ptr<MTLDevice> device_;
  std::function<void()> draw_;
  std::unique_ptr<MetalSurface> surface_;  ///< made when a drawable is asked for
  bool isRefused_ = false;                 ///< the device makes none here
  std::shared_ptr<CAMetalDrawable> drawable_;
  CGSize drawableSize_;  ///< pixels
  bool isDrawing_ = false;
  bool isOpaque_ = true;
  bool isVisible_ = false;
  bool isMarked_ = true;
  bool isScheduled_ = false;
  int attempts_ = 0;  ///< since the mark
};

}  // namespace QelUtilVideo
