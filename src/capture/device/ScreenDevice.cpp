#include "capture/device/ScreenDevice.h"

#include "capture/device/DisplayNaming.h"
#include "log/Log.h"
#include "platform/Displays.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <utility>

namespace QelUtilVideo::device {

NSError makeError(ScreenDevice::Error error) {
  return {"QelUtilVideo.device.ScreenDevice.Error", static_cast<std::int64_t>(error), "failedToCreateInput"};
}

std::shared_ptr<ScreenDevice> ScreenDevice::make(Root& root, std::shared_ptr<NSScreen> screen) {
  const auto displayID = screen ? screenDisplayID(*screen) : std::nullopt;
  if (!displayID) return nullptr;
  auto productName = displayProductName(root.platform().displays(), *displayID);
  return std::make_shared<ScreenDevice>(Key{}, root, std::move(screen), *displayID, std::move(productName));
}

ScreenDevice::ScreenDevice(Key, Root& root, std::shared_ptr<NSScreen> screen, CGDirectDisplayID displayID,
                           std::string displayProdutName)
    : Device(root, "[CapturableDevice:Screen:" + std::to_string(nextLogID()) + "]"),
      screen_(std::move(screen)),
      displayID_(displayID),
      displayProdutName_(std::move(displayProdutName)),
      uniqueID_(deviceScreenUniqueID(displayID)) {
  log(LogLevel::info,
      logName() + " init (displayID=" + std::to_string(displayID_) + ", name=" + ScreenDevice::name() + ")");
}

ScreenDevice::~ScreenDevice() {
  stopAtOnce();
  log(LogLevel::info, logName() + " deinit");
}

std::string ScreenDevice::name() const {
  return displayName(root().platform().systemVersion(), *screen(), displayProdutName_);
}

bool ScreenDevice::isAvailable() const {
  return root().platform().displays().CGDisplayCreateImage(displayID_) != nullptr;
}

void ScreenDevice::setScreen(std::shared_ptr<NSScreen> screen) {
  if (!screen) return;
  screen_.with([&](std::shared_ptr<NSScreen>& held) { held.swap(screen); });
}

std::shared_ptr<NSImage> ScreenDevice::snapshotImage() const {
  auto image = root().platform().displays().CGDisplayCreateImage(displayID_);
  return image ? std::make_shared<NSImage>(std::move(image), CGSize{}) : nullptr;
}

Result<std::shared_ptr<Session>> ScreenDevice::makeSession() {
  auto input = root().platform().captureDevices().makeScreenInput(displayID_);
  if (!input) return makeError(Error::failedToCreateInput);
  return makeSessionOf(std::move(input));
}

}  // namespace QelUtilVideo::device
