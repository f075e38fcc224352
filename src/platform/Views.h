#pragma once

#include "platform/NativeWindow.h"

#include <QelUtilVideo/platform/CGGeometry.h>

#include <cstdint>
#include <memory>
#include <string>

namespace QelUtilVideo {

struct NSEvent;

/// Told about the part of a window that it is drawn on. Main thread.
class ViewSurfaceClient {
 public:
  virtual ~ViewSurfaceClient() = default;
  /// Pixels that were shown are gone, as after something that lay over them was taken away: what was
  /// presented last has to be presented again.
  virtual void surfaceExposed() = 0;
  /// The surface is covered by others as a whole, or no longer is.
  virtual void surfaceOccluded(bool occluded) = 0;
  /// Somebody else has destroyed it. Nothing that is drawn on it shows any more.
  virtual void surfaceGone() = 0;
};

/// The part of a window that one view is drawn on: a child window with 24 bits of colour. It comes into
/// being hidden, black, and in front of its sisters. Main thread, except where said. Destroying it takes
/// it off the window; whatever draws in it lets go of it before.
class ViewSurface {
 public:
  virtual ~ViewSurface() = default;
  /// Any thread. The server knows the window by now.
  [[nodiscard]] virtual const NativeWindow& nativeWindow() const = 0;
  /// Where it lies: pixels of the window, origin top-left, y downward. With a side below one pixel it does
  /// not show. Pixels that stay inside stay as they are, and those that are new are not painted.
  virtual void setFrame(const CGRect& pixels) = 0;
  virtual void setHidden(bool hidden) = 0;
  /// Puts it in front of its sisters.
  virtual void raise() = 0;
};

/// Told about a window. Main thread.
class WindowClient {
 public:
  virtual ~WindowClient() = default;
  /// Size, place or viewability are not what they were.
  virtual void windowChanged() = 0;
  /// A person asks for the window to be closed; it stays until its backing is destroyed.
  virtual void windowCloseRequested() = 0;
  virtual void windowKeyDown(const NSEvent& event) = 0;
  /// The window was taken away: destroyed by another program, or its server is lost. Told once; nothing
  /// else is told afterwards, and the backing does nothing any more.
  virtual void windowGone() = 0;
};

/// One window of a display system: of our own, or of another program that lets us show views in it. Main
/// thread. Destroying it takes a window of our own off the display and lets go of a foreign one; its
/// surfaces go before.
class WindowBacking {
 public:
  struct State {
    CGRect frame;           ///< the content's, global display coordinates (points, origin top-left)
    bool viewable = false;  ///< it and all that it lies in are shown, though perhaps covered
    friend bool operator==(const State&, const State&) = default;
  };

  virtual ~WindowBacking() = default;
  [[nodiscard]] virtual std::uint32_t windowNumber() const = 0;
  /// As last told by the server; what was asked for since may be on its way.
  [[nodiscard]] virtual State state() const = 0;
  /// Null when the window is gone or the server refuses.
  [[nodiscard]] virtual std::shared_ptr<ViewSurface> makeSurface(std::weak_ptr<ViewSurfaceClient> client) = 0;

  // For a window of our own; on a foreign one they do nothing.
  virtual void setTitle(const std::string& title) = 0;
  /// In points.
  virtual void setContentSize(CGSize size) = 0;
  /// Shows the window and asks for the keyboard.
  virtual void orderFront() = 0;
  virtual void orderOut() = 0;
};

/// Windows that show views. Main thread. Clients are held weakly and told until the backing goes.
class Views {
 public:
  virtual ~Views() = default;
  /// A window of our own, not shown yet; `size` in points, UTF-8 title. Null when there is no display.
  [[nodiscard]] virtual std::unique_ptr<WindowBacking> makeWindow(CGSize size, const std::string& title,
                                                                  std::weak_ptr<WindowClient> client) = 0;
  /// A window of another program or of another part of the host's. Key presses and requests to close stay
  /// with their owner. Null when there is none of that number.
  [[nodiscard]] virtual std::unique_ptr<WindowBacking> makeWindowIn(std::uint32_t windowNumber,
                                                                    std::weak_ptr<WindowClient> client) = 0;
};

}  // namespace QelUtilVideo
