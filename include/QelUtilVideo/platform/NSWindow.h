#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <cstdint>
#include <memory>
#include <string>

namespace QelUtilVideo {

class NSScreen;
class NSView;
class NSWindowDelegate;
class ViewSurface;
class ViewSurfaceClient;

/// Posted on the main thread by a window whose `screen()` is another one, or none, since it is not shown.
inline constexpr const char* NSWindowDidChangeScreenNotification = "NSWindowDidChangeScreenNotification";

/// A window that shows a tree of views: one of our own on the display, one that the host or another
/// program has, or one on no display at all. Main thread, except where a member says otherwise.
///
///     auto window = NSWindow::make({640, 360}, "Camera");
///     auto view = RenderView::make(window->contentView()->bounds());
///     view->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
///     window->contentView()->addSubview(view);
///     window->orderFront();
///     …                                  // the main loop runs, frames are drawn
///     CGImageRef picture = window->image();
///
/// A window on a display has to be given the main loop's time, or it freezes. Its display server may go
/// at any time; the window is then closed, and its delegate told. The last reference may be dropped on any
/// thread; the views then leave the window on the main thread.
class QEL_EXPORT NSWindow : public virtual NSObject {
 public:
  /// A window of our own, not shown before `orderFront`. `size` is the content's, in points (sides that are
  /// not finite or below 1 count as 1, above 32,767 as that); `title` is UTF-8. Null when there is no
  /// display.
  static std::shared_ptr<NSWindow> make(CGSize size, const std::string& title);
  /// Shows views in a window that somebody else made, on the same display server: by its X11 window ID.
  /// The content fills that window and follows its size; the window itself stays its owner's, and with it
  /// title, keys and closing. It may be unmapped still. Null when there is no such window.
  static std::shared_ptr<NSWindow> makeInForeignWindow(std::uint32_t windowNumber);
  /// A window on no display: its views are drawn, at 60 refreshes per second or at those of the fastest
  /// display, on a screen of its own that is listed nowhere, and their pixels can be read back. `size` is in
  /// points (sides that are not finite or below 1 count as 1); `backingScaleFactor` pixels make a point (0.5
  /// to 8, else 1).
  static std::shared_ptr<NSWindow> makeOffscreen(CGSize size, double backingScaleFactor = 1);
  ~NSWindow() override;

  /// Fills the window; never null.
  [[nodiscard]] const std::shared_ptr<NSView>& contentView() const { return contentView_; }
  /// Replaces the content view; null puts an empty one. A view that lies elsewhere is moved.
  void setContentView(std::shared_ptr<NSView> view);
  /// Resizes the window; the content view follows at once, and again when the display has other ideas.
  /// Sizes as in `make`. Nothing for a foreign window.
  void setContentSize(CGSize size);
  [[nodiscard]] CGSize contentSize() const;

  /// Null: nobody is told.
  void setDelegate(std::weak_ptr<NSWindowDelegate> delegate) { delegate_ = std::move(delegate); }
  /// Shows a window of our own and asks for the keyboard. Nothing for other windows, as the two below.
  void orderFront();
  void orderOut();
  void setTitle(const std::string& title);

  /// The X11 window ID; 0 off screen and after the window was closed.
  [[nodiscard]] std::uint32_t windowNumber() const;
  /// The screen that most of the window is on; null while the window is not shown: not ordered front,
  /// minimised, on another desktop, in a foreign window that is not shown, or closed.
  [[nodiscard]] std::shared_ptr<NSScreen> screen() const;
  [[nodiscard]] double backingScaleFactor() const { return backingScaleFactor_; }

  /// What the window shows, in pixels, first row at the top: the last picture that each view presented,
  /// back to front over a transparent ground, scaled to where the view now lies. Views that are hidden
  /// are left out. Null while no view has presented anything, and for windows with a side above 65,535
  /// pixels.
  [[nodiscard]] CGImageRef image() const;

  /// Tells the delegate, takes the views out of the window and the window off its screen; it shows nothing
  /// afterwards. A foreign window stays where it is.
  void close();

 private:
  struct Key {};

 public:
  NSWindow(Key, CGSize size, double backingScaleFactor);

 private:
  class Peer;
  friend class NSView;

  /// A window on the display; null when `backing` is.
  static std::shared_ptr<NSWindow> makeWith(std::shared_ptr<Peer> peer);
  /// Null off screen.
  [[nodiscard]] std::shared_ptr<ViewSurface> makeSurface(std::weak_ptr<ViewSurfaceClient> client);
  /// Takes over what the display says about the window.
  void follow();
  void setScreen(std::shared_ptr<NSScreen> screen);
  void resizeContent(CGSize size);
  void closeRequested();
  template <class Tell>
  void tellDelegate(const char* name, Tell&& tell);
  [[nodiscard]] std::shared_ptr<NSWindow> self();

  std::shared_ptr<NSView> contentView_;
  std::shared_ptr<NSScreen> screen_;
  CGSize size_;
  double backingScaleFactor_;
  std::weak_ptr<NSWindowDelegate> delegate_;
  std::shared_ptr<Peer> peer_;  ///< the window on the display; null off screen and once closed
  bool closed_ = false;
};

}  // namespace QelUtilVideo
