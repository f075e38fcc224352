#pragma once

#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <memory>
#include <utility>
#include <vector>

namespace QelUtilVideo {

class AVCaptureDevice;
class DispatchQueue;
class NSScreen;
class Root;

namespace device {

class CameraDevice;
class ScreenDevice;

/// The one manager behind `CapturableDeviceManager`. Its queue guards the lists; nobody is told anything on
/// it. Any thread.
class SharedDeviceManager {
 public:
  using Cameras = std::vector<std::shared_ptr<CameraDevice>>;
  using Screens = std::vector<std::shared_ptr<ScreenDevice>>;

  explicit SharedDeviceManager(Root& root);
  SharedDeviceManager(const SharedDeviceManager&) = delete;
  SharedDeviceManager& operator=(const SharedDeviceManager&) = delete;

  [[nodiscard]] Cameras cameraDevices();
  [[nodiscard]] Screens screenDevices();
  /// Both of the same moment.
  [[nodiscard]] std::pair<Cameras, Screens> allDevices();

  // What the notification centre calls.
  void deviceWasConnected(const NSNotification& notification);
  void deviceWasDisconnected(const NSNotification& notification);
  void didChangeScreenParameters(const NSNotification& notification);

 private:
  void listFirst();
  void observe(const char* name, void (SharedDeviceManager::*handler)(const NSNotification&));
  [[nodiscard]] std::shared_ptr<CameraDevice> connect(const std::shared_ptr<AVCaptureDevice>& device);
  /// The listed camera, or a new one.
  [[nodiscard]] std::shared_ptr<CameraDevice> listedCamera(const std::shared_ptr<AVCaptureDevice>& device);
  /// The listed display on its new screen object, or a new one; null for a screen that is no display.
  [[nodiscard]] std::shared_ptr<ScreenDevice> listedScreen(const std::shared_ptr<NSScreen>& screen);
  void post(Dictionary change);

  Root& root_;
  const std::shared_ptr<DispatchQueue> queue_;
  bool isListed_ = false;  // these three: on the queue
  Cameras cameras_;
  Screens screens_;
};

}  // namespace device
}  // namespace QelUtilVideo
