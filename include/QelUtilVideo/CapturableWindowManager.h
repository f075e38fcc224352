#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

class CapturableScreen;

/// Lists what can be captured by snapshots of the window server's pictures. Any thread; the first call
/// of `screens` makes the one shared instance, which follows the displays from then on while the main
/// loop runs.
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
};

}  // namespace QelUtilVideo
