#include <QelUtilVideo/CapturableDeviceManager.h>

#include "capture/device/CameraDevice.h"
#include "capture/device/ScreenDevice.h"
#include "capture/device/SharedDeviceManager.h"
#include "platform/Root.h"

#include <algorithm>

namespace QelUtilVideo {

namespace {

device::SharedDeviceManager& shared() { return Root::current().get<device::SharedDeviceManager>(); }

}  // namespace

const std::string& CapturableDeviceManager::didRefreshNotification() {
  static const std::string name = "QelUtilVideoDeviceManagerDidRefreshNotification";
  return name;
}

std::vector<std::shared_ptr<CapturableCamera>> CapturableDeviceManager::cameraDevices() {
  const auto cameras = shared().cameraDevices();
  return {cameras.begin(), cameras.end()};
}

std::vector<std::shared_ptr<CapturableScreen>> CapturableDeviceManager::screenDevices() {
  const auto screens = shared().screenDevices();
  return {screens.begin(), screens.end()};
}

std::vector<std::shared_ptr<Capturable>> CapturableDeviceManager::allDevices() {
  const auto [cameras, screens] = shared().allDevices();
  std::vector<std::shared_ptr<Capturable>> all;
  // Both kinds of base class are the same one object.
  for (const auto& camera : cameras) all.push_back(std::shared_ptr<CapturableCamera>(camera));
  for (const auto& screen : screens) all.push_back(std::shared_ptr<CapturableScreen>(screen));
  return all;
}

std::shared_ptr<Capturable> CapturableDeviceManager::device(const std::string& uniqueID) {
  const auto all = allDevices();
  const auto found = std::ranges::find(all, uniqueID, &Capturable::uniqueID);
  return found == all.end() ? nullptr : *found;
}

}  // namespace QelUtilVideo
