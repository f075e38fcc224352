#pragma once

#include "platform/ThreadSafety.h"
#include "platform/Views.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <memory>

namespace QelUtilVideo {

class NSView;

/// What a view is drawn on when it asks for a layer of its own. Main thread, except where said.
class CALayer : public ViewSurfaceClient, public std::enable_shared_from_this<CALayer> {
 public:
  CALayer(const CALayer&) = delete;
  CALayer& operator=(const CALayer&) = delete;
  ~CALayer() override;

  /// The view that the layer backs, or null once it is gone. Any thread.
  [[nodiscard]] std::shared_ptr<NSView> view() const;

  /// The part of a window on a display that the view is drawn on; null when it is off screen.
  [[nodiscard]] const std::shared_ptr<ViewSurface>& surface() const { return surface_; }
  /// Gives the layer another one, or none; the one before is let go of first.
  void setSurface(std::shared_ptr<ViewSurface> surface);

  /// The view became visible in a window, or ceased to be.
  virtual void setVisible(bool visible) = 0;
  /// The view's window is on another screen, which may have another refresh rate.
  virtual void screenChanged() = 0;
  /// The view's size or backing scale changed.
  virtual void boundsChanged() = 0;
  virtual void setNeedsDisplay() = 0;
  /// The view gives the layer up for good: what it draws with goes. The layer still backs the view.
  virtual void willLeaveView() = 0;
  /// Has the view make another surface.
  void surfaceGone() override;
  /// The last picture presented, in pixels, first row at the top; null before the first. Its layout says
  /// whether colours are multiplied by alpha.
  [[nodiscard]] virtual CGImageRef contents() = 0;

 protected:
  CALayer() = default;
  /// The surface goes when this returns: nothing may draw in it any more.
  virtual void willLeaveSurface() = 0;
  /// There is another surface, or none.
  virtual void didChangeSurface() = 0;

 private:
  friend class NSView;
  void setView(std::weak_ptr<NSView> view);

  std::shared_ptr<ViewSurface> surface_;
  mutable Mutex mutex_;
  std::weak_ptr<NSView> view_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
