#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <memory>

namespace QelUtilVideo {

class NSScreen;
class NSView;

/// A window that shows a tree of views. Main thread, except where a member says otherwise.
///
///     auto window = NSWindow::makeOffscreen({640, 360});
///     window->contentView()->addSubview(RenderView::make(window->contentView()->bounds()));
///     …                                  // the main loop runs, frames are drawn
///     CGImageRef picture = window->image();
///
/// The last reference may be dropped on any thread; the views then leave the window on the main thread.
class QEL_EXPORT NSWindow : public virtual NSObject {
 public:
  /// A window on no display: its views are drawn at 60 refreshes per second on a screen of its own
  /// that is listed nowhere, and their pixels can be read back. `size` is in points (sides that are not
  /// finite or below 1 count as 1); `backingScaleFactor` pixels make a point (0.5 to 8, else 1).
  static std::shared_ptr<NSWindow> makeOffscreen(CGSize size, double backingScaleFactor = 1);
  ~NSWindow() override;

  /// Fills the window; never null.
  [[nodiscard]] const std::shared_ptr<NSView>& contentView() const { return contentView_; }
  /// Replaces the content view; null puts an empty one. A view that lies elsewhere is moved.
  void setContentView(std::shared_ptr<NSView> view);
  /// Resizes the window; the content view follows. Sizes as in `makeOffscreen`.
  void setContentSize(CGSize size);
  [[nodiscard]] CGSize contentSize() const;

  /// The screen that the window is on, or null.
  [[nodiscard]] std::shared_ptr<NSScreen> screen() const;
  [[nodiscard]] double backingScaleFactor() const { return backingScaleFactor_; }

  /// What the window shows, in pixels, first row at the top: the last picture that each view presented,
  /// back to front over a transparent ground, scaled to where the view now lies. Views that are hidden
  /// are left out. Null while no view has presented anything, and for windows with a side above 65,535
  /// pixels.
  [[nodiscard]] CGImageRef image() const;

  /// Takes the views out of the window and the window off its screen; it shows nothing afterwards.
  void close();

 private:
  struct Key {};

 public:
  NSWindow(Key, CGSize size, double backingScaleFactor);

 private:
  std::shared_ptr<NSView> contentView_;
  std::shared_ptr<NSScreen> screen_;
  CGSize size_;
  double backingScaleFactor_;
};

}  // namespace QelUtilVideo
