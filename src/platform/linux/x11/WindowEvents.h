#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/x11/HeldKeys.h"
#include "platform/linux/x11/MainThreadNews.h"
#include "platform/linux/x11/X11Toolkit.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// What became of a window since the main thread last looked.
struct WindowNews {
  bool isMoved = false;       ///< its place, size or being shown may be other ones
  bool isReparented = false;  ///< it lies in other windows
  bool isGone = false;        ///< destroyed, or its server is lost
  bool isAskedToClose = false;
  std::optional<xcb_client_message_event_t> ping;  ///< the last one, not answered yet
  std::vector<KeyPress> keys;                      ///< in their order
};

/// Sifts what the server says about one window and those that it lies in, and brings it to the main thread.
class WindowEvents final : public X11EventSink {
 public:
  /// Keys and what window managers ask for concern only the owner.
  enum class Owner { we, others };

  WindowEvents(const X11Toolkit& toolkit, xcb_window_t window, Owner owner,
               std::function<void(const WindowNews&)> handler);

  /// Any thread.
  void setAncestors(std::vector<xcb_window_t> ancestors);
  // Main thread, as in `MainThreadNews`.
  void stop() { news_->stop(); }
  [[nodiscard]] bool isStopped() const { return news_->isStopped(); }

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override;
  void handleLoss() override;

 private:
  void noteStructure(const xcb_generic_event_t& event);
  void noteInput(const xcb_generic_event_t& event);
  void noteMessage(const xcb_client_message_event_t& message);
  /// Whether it is the window, or one that it lies in.
  [[nodiscard]] bool isWatched(xcb_window_t window) const;

  const xcb_window_t window_;
  const Owner owner_;
  const X11Atoms atoms_;
  const std::shared_ptr<MainThreadNews<WindowNews>> news_;
  Synchronised<std::vector<xcb_window_t>> ancestors_;
  Synchronised<HeldKeys> heldKeys_;
};

}  // namespace QelUtilVideo
