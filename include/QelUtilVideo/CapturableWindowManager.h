#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

class CapturableScreen;
class CapturableWindow;

/// Lists what can be captured by snapshots of the window server's pictures. Any thread; the first call
/// of `screens` or `windows` makes the one shared instance, which follows the displays from then on while the
/// main loop runs.
///
/// When displays were connected or disconnected, the notification called `didRefreshNotification()` is
/// posted on the main thread, without an object. Its user information maps "connected" and
/// "disconnected" to arrays of `CapturableScreen` objects; an empty list is left out.
///
/// Log sinks are called while the manager works on its lists: a sink must not call the manager.
class QEL_EXPORT CapturableWindowManager {
 public:
  CapturableWindowManager() = delete;

  [[nodiscard]] static const std::string& didRefreshNotification();
  /// The displays, in the platform's order: the primary one first.
  [[nodiscard]] static std::vector<std::shared_ptr<CapturableScreen>> screens();
  /// The windows that a person might want to capture, front to back: ordinary and opaque ones of at least
  /// 128 × 128 points that have an image. Lists them anew, which takes a while; nobody is notified of
  /// windows. A window is the same object each time, for as long as it stays listed. Empty without a window
  /// server.
  [[nodiscard]] static std::vector<std::shared_ptr<CapturableWindow>> windows();

  /// Has the window of that process at that level belong into the pictures of the windows behind it, as
  /// something that the host itself shows over a captured window. One at a time: replaces an earlier one. A
  /// level that does not fit into 32 bits names no window, and clears it.
  static void setOverlay(std::int64_t windowLevel, std::int32_t processIdentifier);
  static void clearOverlay();
};

}  // namespace QelUtilVideo
