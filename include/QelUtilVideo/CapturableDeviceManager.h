#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

class Capturable;
class CapturableCamera;
class CapturableScreen;

/// Lists what can be captured as a stream of its own pace: cameras, and displays as devices. Any thread; the
/// first call that needs a list makes the one shared instance, which follows devices and displays from then
/// on while the main loop runs.
///
/// A source stays the same object for as long as it stays listed. One that is listed no more goes on with
/// its capture for as long as somebody holds it.
///
/// When devices or displays were connected or disconnected, the notification called
/// `didRefreshNotification()` is posted, without an object, on the thread that learnt of it. Its user
/// information maps "connected" and "disconnected" to arrays of sources: a camera that was listed already may
/// be connected once more, and nothing may be disconnected. Observers may call these functions.
///
/// Log sinks are called while the manager works on its lists: a sink must not call the manager.
class QEL_EXPORT CapturableDeviceManager {
 public:
  CapturableDeviceManager() = delete;

  [[nodiscard]] static const std::string& didRefreshNotification();
  /// In the platform's order.
  [[nodiscard]] static std::vector<std::shared_ptr<CapturableCamera>> cameraDevices();
  /// In the platform's order: the primary display first.
  [[nodiscard]] static std::vector<std::shared_ptr<CapturableScreen>> screenDevices();
  /// The cameras, then the displays, of one moment.
  [[nodiscard]] static std::vector<std::shared_ptr<Capturable>> allDevices();
  /// The first device whose `uniqueID` is exactly that; null when there is none.
  [[nodiscard]] static std::shared_ptr<Capturable> device(const std::string& uniqueID);
};

}  // namespace QelUtilVideo
