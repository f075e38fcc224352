#include "platform/linux/core/LinuxCaptureDevices.h"

#include "platform/linux/core/CaptureStream.h"
#include "platform/linux/core/LinuxCaptureSession.h"
#include "platform/linux/core/LinuxVideoDataOutput.h"

#include <cerrno>
#include <utility>

namespace QelUtilVideo {

LinuxCaptureDevices::LinuxCaptureDevices(NotificationCenter& center, CameraSource& cameras,
                                         MakeScreenInput makeScreenInput)
    : center_(center), cameras_(cameras), makeScreenInput_(std::move(makeScreenInput)) {}

std::vector<std::shared_ptr<AVCaptureDevice>> LinuxCaptureDevices::devicesWithMediaType(AVMediaType type) {
  if (type != AVMediaType::video) return {};
  return cameras_.cameras();
}

Result<std::shared_ptr<AVCaptureInput>> LinuxCaptureDevices::makeDeviceInput(
    const std::shared_ptr<AVCaptureDevice>& device) {
  if (!device) return NSError{kCaptureErrorDomain, ENODEV, "There is no such device"};
  return cameras_.makeInput(*device);
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
