#pragma once

#include "platform/Metal.h"

#include <QelUtilVideo/platform/NSView.h>

#include <memory>
#include <optional>

namespace QelUtilVideo {

class CAMetalLayer;
class Dispatch;

/// A view that a graphics processor draws: when it is told to, and, where `enableSetNeedsDisplay` says so,
/// after it was marked, resized, or lost pixels on the display. It has no timer of its own. Main thread; the
/// last reference may be dropped on any.
class MTKView : public NSView {
 public:
  MTKView(CGRect frame, Dispatch& dispatch, std::shared_ptr<MTLDevice> device);
  ~MTKView() override;

  /// The picture that the coming drawing goes to; the same one until it is presented. Null when there is none
  /// now.
  [[nodiscard]] std::shared_ptr<CAMetalDrawable> currentDrawable();
  /// Clears the current drawable to the clear colour; absent when there is no drawable.
  [[nodiscard]] std::optional<MTLRenderPassDescriptor> currentRenderPassDescriptor();
  /// Whole pixels.
  [[nodiscard]] CGSize drawableSize() const;

  [[nodiscard]] MTLClearColor clearColor() const { return clearColor_; }
  void setClearColor(const MTLClearColor& color) { clearColor_ = color; }
  /// This view never draws by itself; the flag is kept for those who ask.
  [[nodiscard]] bool isPaused() const { return isPaused_; }
  void setPaused(bool paused) { isPaused_ = paused; }
  [[nodiscard]] bool enableSetNeedsDisplay() const { return enableSetNeedsDisplay_; }
  void setEnableSetNeedsDisplay(bool enabled) { enableSetNeedsDisplay_ = enabled; }

  /// Draws now, through `drawRect`; not from inside of that.
  void draw();

  // NSView
  std::shared_ptr<CALayer> makeBackingLayer() override;

 protected:
  /// Null while the view has no layer.
  [[nodiscard]] std::shared_ptr<CAMetalLayer> metalLayer() const;

 private:
  Dispatch& dispatch_;
  const std::shared_ptr<MTLDevice> device_;
  MTLClearColor clearColor_;
  bool isPaused_ = false;
  bool enableSetNeedsDisplay_ = false;
};

}  // namespace QelUtilVideo
