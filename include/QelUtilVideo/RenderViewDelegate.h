#pragma once

#include <QelUtilVideo/platform/Export.h>

namespace QelUtilVideo {

class RenderView;

/// Told what a view is about to do; implemented by the host. Held weakly.
class QEL_EXPORT RenderViewDelegate {
 public:
  virtual ~RenderViewDelegate() = default;

  /// The view is about to draw a frame that differs from the last one it drew. Optional: a class that
  /// does not override it is not told.
  ///
  /// Called on the thread that draws: the main thread with the Metal backend; with the OpenGL backend
  /// the view's drawing thread, while the view's context is locked, so the method must not wait for the
  /// main thread and must not change the view.
  virtual void renderViewWillRender(RenderView& view) { static_cast<void>(view); }
};

}  // namespace QelUtilVideo
