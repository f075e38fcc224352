#pragma once

#include "platform/Views.h"
#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/WindowEvents.h"
#include "platform/linux/x11/X11Toolkit.h"

#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

class X11Surface;

/// Follows one window of the server, whoever made it, and tells the client what becomes of it. To know
/// where a window is and whether it shows, those that it lies in are watched too; nothing else about any of
/// them is touched. Main thread.
class WindowWatch {
 public:
  WindowWatch(std::shared_ptr<X11Toolkit> toolkit, xcb_window_t window, WindowEvents::Owner owner,
              std::weak_ptr<WindowClient> client);
  WindowWatch(const WindowWatch&) = delete;
  WindowWatch& operator=(const WindowWatch&) = delete;
  ~WindowWatch();

  [[nodiscard]] xcb_window_t window() const { return window_; }
  [[nodiscard]] const WindowBacking::State& state() const { return state_; }
  /// There was no such window on the screen, or it is gone.
  [[nodiscard]] bool isGone() const { return isGone_; }
  /// The client counts on this size: it is told as soon as the window turns out to have another.
  void expect(CGSize size) { expected_ = size; }
  /// Null as in `WindowBacking`.
  [[nodiscard]] std::shared_ptr<ViewSurface> makeSurface(std::weak_ptr<ViewSurfaceClient> client);

 private:
  void follow(const WindowNews& news);
  void vanish();
  void watchAncestors();
  /// Takes over what the server says; true when the client has to hear of it, false also for a window that
  /// turns out to be gone.
  [[nodiscard]] bool refresh();
  [[nodiscard]] std::optional<WindowBacking::State> ask() const;
  void answer(xcb_client_message_event_t ping) const;

  const std::shared_ptr<X11Toolkit> toolkit_;
  const xcb_window_t window_;
  const std::weak_ptr<WindowClient> client_;
  const std::shared_ptr<WindowEvents> events_;
  std::vector<EventSelection> selections_;  ///< of the window and those that it lies in
  WindowBacking::State state_;
  std::optional<CGSize> expected_;
  std::vector<std::weak_ptr<X11Surface>> surfaces_;
  bool isGone_ = false;
};

}  // namespace QelUtilVideo
