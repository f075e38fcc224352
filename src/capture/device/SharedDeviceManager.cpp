#include "capture/device/SharedDeviceManager.h"

#include "capture/device/CameraDevice.h"
#include "capture/device/DisplayNaming.h"
#include "capture/device/ScreenDevice.h"
#include "log/Log.h"
#include "platform/CaptureDevices.h"
#include "platform/Dispatch.h"
#include "platform/Displays.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <QelUtilVideo/CapturableDeviceManager.h>

#include <algorithm>
#include <iterator>

namespace QelUtilVideo::device {
namespace {

using Cameras = SharedDeviceManager::Cameras;
using Screens = SharedDeviceManager::Screens;

std::shared_ptr<CameraDevice> find(const Cameras& cameras, const std::string& uniqueID) {
  const auto found =
      std::ranges::find_if(cameras, [&](const auto& camera) { return camera->uniqueID() == uniqueID; });
  return found == cameras.end() ? nullptr : *found;
}

std::shared_ptr<ScreenDevice> find(const Screens& screens, CGDirectDisplayID display) {
  const auto found =
      std::ranges::find_if(screens, [&](const auto& screen) { return screen->displayID() == display; });
  return found == screens.end() ? nullptr : *found;
}

/// The entries of `list` whose display is not in `others`.
Screens entriesNotIn(const Screens& others, const Screens& list) {
  Screens entries;
  std::ranges::copy_if(list, std::back_inserter(entries),
                       [&](const auto& screen) { return !find(others, screen->displayID()); });
  return entries;
}

void logConnected(const SessionDelegate& source) { log(LogLevel::info, source.logName() + " connected"); }
void logDisconnected(const SessionDelegate& source) {
  log(LogLevel::info, source.logName() + " disconnected");
}

template <class Source>
Array arrayOf(const std::vector<std::shared_ptr<Source>>& sources) {
  Array array;
  for (const auto& source : sources) array.emplace_back(std::shared_ptr<NSObject>(source));
  return array;
}

/// The video device that a notification is about; null when it is about none.
std::shared_ptr<AVCaptureDevice> videoDeviceOf(const NSNotification& notification) {
  auto device = std::dynamic_pointer_cast<AVCaptureDevice>(notification.object);
  return device && device->hasMediaType(AVMediaType::video) ? device : nullptr;
}

}  // namespace

SharedDeviceManager::SharedDeviceManager(Root& root)
    : root_(root),
      queue_(root.platform().dispatch().makeQueue("QelUtilVideo.CapturableDevice.ManagerQueue")) {}

Cameras SharedDeviceManager::cameraDevices() { return allDevices().first; }

Screens SharedDeviceManager::screenDevices() { return allDevices().second; }

std::pair<Cameras, Screens> SharedDeviceManager::allDevices() {
  std::pair<Cameras, Screens> copy;
  queue_->sync([&] {
    listFirst();
    copy = {cameras_, screens_};
  });
  return copy;
}

void SharedDeviceManager::listFirst() {
  if (std::exchange(isListed_, true)) return;
  // What changes while the devices are listed waits for the queue, and is not missed.
  observe(AVCaptureDeviceWasConnectedNotification, &SharedDeviceManager::deviceWasConnected);
  observe(AVCaptureDeviceWasDisconnectedNotification, &SharedDeviceManager::deviceWasDisconnected);
  observe(NSApplicationDidChangeScreenParametersNotification,
          &SharedDeviceManager::didChangeScreenParameters);
  for (const auto& device : root_.platform().captureDevices().devicesWithMediaType(AVMediaType::video)) {
    cameras_.push_back(connect(device));
  }
  for (const auto& screen : root_.platform().displays().screens()) {
    auto made = ScreenDevice::make(root_, screen);
    if (!made) continue;
    logConnected(*made);
    screens_.push_back(std::move(made));
  }
}

void SharedDeviceManager::observe(const char* name,
                                  void (SharedDeviceManager::*handler)(const NSNotification&)) {
  root_.platform().notificationCenter().addObserver(
      name, nullptr, [this, handler](const NSNotification& notification) { (this->*handler)(notification); });
}

std::shared_ptr<CameraDevice> SharedDeviceManager::connect(const std::shared_ptr<AVCaptureDevice>& device) {
  auto camera = CameraDevice::make(root_, device);
  logConnected(*camera);
  return camera;
}

std::shared_ptr<CameraDevice> SharedDeviceManager::listedCamera(
    const std::shared_ptr<AVCaptureDevice>& device) {
  auto known = find(cameras_, device->uniqueID());
  return known ? known : connect(device);
}

void SharedDeviceManager::deviceWasConnected(const NSNotification& notification) {
  const auto device = videoDeviceOf(notification);
  if (!device) return;
  std::shared_ptr<CameraDevice> connected;
  Cameras gone;  // let go outside the queue: with the last reference a capture may end
  queue_->sync([&] {
    Cameras listed;
    for (const auto& found : root_.platform().captureDevices().devicesWithMediaType(AVMediaType::video)) {
      listed.push_back(listedCamera(found));
    }
    connected = find(listed, device->uniqueID());
    if (!connected) {
      // Told of before it is listed.
      connected = connect(device);
      listed.push_back(connected);
    }
    gone = std::exchange(cameras_, std::move(listed));
  });
  post({{"connected", Array{std::shared_ptr<NSObject>(connected)}}});
}

void SharedDeviceManager::deviceWasDisconnected(const NSNotification& notification) {
  const auto device = videoDeviceOf(notification);
  if (!device) return;
  Cameras removed;
  queue_->sync([&] {
    const auto isIt = [&, id = device->uniqueID()](const auto& camera) { return camera->uniqueID() == id; };
    std::ranges::copy_if(cameras_, std::back_inserter(removed), isIt);
    std::erase_if(cameras_, isIt);
    for (const auto& camera : removed) logDisconnected(*camera);
  });
  post({{"disconnected", arrayOf(removed)}});
}

void SharedDeviceManager::didChangeScreenParameters(const NSNotification& /*notification*/) {
  Screens gone;
  Dictionary change;
  queue_->sync([&] {
    Screens listed;
    for (const auto& screen : root_.platform().displays().screens()) {
      if (auto entry = listedScreen(screen)) listed.push_back(std::move(entry));
    }
    const Screens disconnected = entriesNotIn(listed, screens_);
    for (const auto& screen : disconnected) logDisconnected(*screen);
    const Screens connected = entriesNotIn(screens_, listed);
    for (const auto& screen : connected) logConnected(*screen);
    gone = std::exchange(screens_, std::move(listed));
    if (!connected.empty()) change.set("connected", arrayOf(connected));
    if (!disconnected.empty()) change.set("disconnected", arrayOf(disconnected));
  });
  if (!change.empty()) post(std::move(change));
}

std::shared_ptr<ScreenDevice> SharedDeviceManager::listedScreen(const std::shared_ptr<NSScreen>& screen) {
  const auto displayID = screenDisplayID(*screen);
  if (!displayID) return nullptr;
  auto known = find(screens_, *displayID);
  if (!known) return ScreenDevice::make(root_, screen);
  known->setScreen(screen);
  return known;
}

void SharedDeviceManager::post(Dictionary change) {
  root_.platform().notificationCenter().postNotificationName(
      CapturableDeviceManager::didRefreshNotification(), nullptr, std::move(change));
}

}  // namespace QelUtilVideo::device
