#pragma once

#include "platform/CALayer.h"
#include "platform/Dispatch.h"
#include "platform/OpenGL.h"
#include "platform/ThreadSafety.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

namespace QelUtilVideo {

/// A layer that OpenGL draws. Asynchronously: while its view is visible and not covered, a driver asks it
/// once per refresh whether to draw, on a drawing thread, with the context locked, and after a yes lets the
/// view draw. After a no, pixels that were lost on the display meanwhile are presented again. A layer that
/// is not asynchronous is asked on the main thread, after it was marked.
///
/// The context is made when the layer becomes visible and has none, and kept until the layer goes or its
/// view gives it up; while the view lies in a window on a display, it is tied to the layer's surface there.
/// It is replaced when it cannot draw there, and when it is lost; but a replacement that is lost before it
/// was drawn in only when the layer becomes visible again. Where no context can be had, a few more attempts
/// are made, a second apart, and one whenever something changes on the screen. Main thread, except where
/// said; the last reference may be dropped on any thread, the drawing thread included.
class NSOpenGLLayer : public CALayer {
 public:
  explicit NSOpenGLLayer(OpenGL& openGL);
  ~NSOpenGLLayer() override;

  void setNeedsDisplayOnBoundsChange(bool needs) { needsDisplayOnBoundsChange_ = needs; }
  void setAsynchronous(bool asynchronous);

  /// Any thread.
  [[nodiscard]] std::shared_ptr<NSOpenGLContext> openGLContext() const;
  /// Replaces the context; null takes it away, and nothing is drawn until the layer has one again.
  virtual void setOpenGLContext(std::shared_ptr<NSOpenGLContext> context);
  [[nodiscard]] virtual NSOpenGLPixelFormat openGLPixelFormatForDisplayMask(std::uint32_t mask);
  /// A context of this format; null when the machine has none.
  [[nodiscard]] virtual std::shared_ptr<NSOpenGLContext> openGLContextForPixelFormat(
      const NSOpenGLPixelFormat& format);
  /// Whether to draw for the refresh that will be shown at `displayTime` (seconds of the media clock).
  /// Drawing thread, context locked.
  [[nodiscard]] virtual bool canDrawInOpenGLContext(NSOpenGLContext& context, double displayTime);

  /// One refresh: fits the surface to the view, asks, draws. True when the view drew. Does nothing without
  /// view or context. What the view throws goes to the system log. Drawing thread.
  bool refresh(double displayTime);

  // CALayer
  void setVisible(bool visible) override;
  void screenChanged() override;
  void boundsChanged() override;
  void setNeedsDisplay() override;
  void willLeaveView() override;
  [[nodiscard]] CGImageRef contents() override;

  // ViewSurfaceClient
  void surfaceExposed() override;
  void surfaceOccluded(bool occluded) override;

 protected:
  void willLeaveSurface() override;
  void didChangeSurface() override;

 private:
  bool draw(NSView& view, NSOpenGLContext& context, double displayTime);
  /// Makes a context unless there is one that draws on the surface, and a driver when one is due; what cannot
  /// be had is tried again later.
  void provide();
  void tryAgainLater();
  /// Answers whether there is a context that draws on the surface.
  bool provideContext();
  void replaceLostContext();
  /// False: a driver is due and cannot be had.
  bool updateDriver();

  OpenGL& openGL_;
  bool needsDisplayOnBoundsChange_ = false;
  bool asynchronous_ = false;
  bool visible_ = false;
  bool occluded_ = false;
  std::optional<NativeWindow> drawable_;  ///< what the context was last tied to
  std::unique_ptr<OpenGLLayerDriver> driver_;
  std::unique_ptr<DispatchTimerSource> attempts_;  ///< while what is due cannot be had
  std::atomic<bool> needsPresentation_ = false;    ///< the display lost pixels since the last presentation
  std::atomic<bool> replacesContext_ = false;      ///< since a loss, until something was drawn again
  mutable Mutex mutex_;
  std::shared_ptr<NSOpenGLContext> context_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
