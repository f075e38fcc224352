#include "platform/linux/core/LinuxCaptureDevices.h"

#include "platform/linux/core/LinuxCaptureSession.h"
#include "platform/linux/core/LinuxVideoDataOutput.h"

#include <cerrno>
#include <utility>

namespace QelUtilVideo {

LinuxCaptureDevices::LinuxCaptureDevices(NotificationCenter& center, MakeScreenInput makeScreenInput)
    : center_(center), makeScreenInput_(std::move(makeScreenInput)) {}

std::vector<std::shared_ptr<AVCaptureDevice>> LinuxCaptureDevices::devicesWithMediaType(AVMediaType) {
  return {};
}

Result<std::shared_ptr<AVCaptureInput>> LinuxCaptureDevices::makeDeviceInput(
    const std::shared_ptr<AVCaptureDevice>& /*device*/) {
  return NSError{"QelUtilVideo.platform.capture", ENODEV, "There is no such device"};
}

std::shared_ptr<AVCaptureInput> LinuxCaptureDevices::makeScreenInput(CGDirectDisplayID display) {
  return makeScreenInput_(display);
}

std::shared_ptr<AVCaptureSession> LinuxCaptureDevices::makeSession() {
  return std::make_shared<LinuxCaptureSession>(center_);
}

std::shared_ptr<AVCaptureVideoDataOutput> LinuxCaptureDevices::makeVideoDataOutput() {
  return std::make_shared<LinuxVideoDataOutput>();
}

}  // namespace QelUtilVideo
