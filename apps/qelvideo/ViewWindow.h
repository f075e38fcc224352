#pragma once

#include <QelUtilVideo/platform/NSEvent.h>
#include <QelUtilVideo/platform/NSWindowDelegate.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ViewOptions.h"

namespace QelUtilVideo {
class NSWindow;
}

namespace qelvideo {

class Terminal;

/// Where a view is shown.
struct ViewPlace {
  bool offscreen = false;
  std::optional<std::uint32_t> inside;  ///< the X11 ID of a window of another program
  std::string title;                    ///< of a window of its own
};

/// The window of a view: of its own, in that of another program, or off screen. Knows what becomes of it.
/// Main thread.
class ViewWindow {
 public:
  using KeyHandler = std::function<void(const QelUtilVideo::NSEvent& event)>;

  /// Throws `Failure` when there is no such window or no display.
  ViewWindow(Terminal& terminal, const ViewPlace& place, QelUtilVideo::CGSize size);
  ViewWindow(const ViewWindow&) = delete;
  ViewWindow& operator=(const ViewWindow&) = delete;
  /// Closes the window.
  ~ViewWindow();

  [[nodiscard]] const std::shared_ptr<QelUtilVideo::NSWindow>& window() const { return window_; }
  [[nodiscard]] bool isOffscreen() const { return offscreen_; }
  /// A person has closed it.
  [[nodiscard]] bool isClosed() const;
  /// It was taken away, by its owner or by the end of the X server, of which the person was told.
  [[nodiscard]] bool isLost() const;
  /// Keys that are pressed in the window go here; only a window of its own gets any.
  void onKey(KeyHandler handler);

 private:
  class Delegate;

  std::shared_ptr<Delegate> delegate_;
  std::shared_ptr<QelUtilVideo::NSWindow> window_;
  bool offscreen_;
};

/// "0x1a00007" or "27262983". Throws `UsageFailure` that shows what is understood.
[[nodiscard]] std::uint32_t parseWindowNumber(const std::string& text);

}  // namespace qelvideo
