#include "capture/device/CameraDevice.h"

#include "log/Log.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <utility>

namespace QelUtilVideo::device {

std::shared_ptr<CameraDevice> CameraDevice::make(Root& root, std::shared_ptr<AVCaptureDevice> device) {
  return std::make_shared<CameraDevice>(Key{}, root, std::move(device));
}

CameraDevice::CameraDevice(Key, Root& root, std::shared_ptr<AVCaptureDevice> device)
    : Device(root, "[CapturableDevice:Camera:" + std::to_string(nextLogID()) + "]"),
      device_(std::move(device)),
      uniqueID_(device_->uniqueID()) {
  log(LogLevel::info,
      logName() + " init (uniqueID=" + uniqueID_ + ", name=" + device_->localizedName() + ")");
}

CameraDevice::~CameraDevice() {
  stopAtOnce();
  log(LogLevel::info, logName() + " deinit");
}

std::string CameraDevice::name() const { return device_->localizedName(); }

bool CameraDevice::isAvailable() const { return device_->isConnected(); }

std::shared_ptr<AVCaptureSession> CameraDevice::captureSession() const {
  const auto running = session();
  return running ? running->session() : nullptr;
}

std::shared_ptr<AVCaptureInput> CameraDevice::captureInput() const {
  const auto running = session();
  return running ? running->input() : nullptr;
}

std::shared_ptr<AVCaptureVideoDataOutput> CameraDevice::captureOutput() const {
  const auto running = session();
  return running ? running->output() : nullptr;
}

Result<std::shared_ptr<Session>> CameraDevice::makeSession() {
  auto input = root().platform().captureDevices().makeDeviceInput(device_);
  if (!input.hasValue()) return input.error();
  return makeSessionOf(std::move(input.value()));
}

}  // namespace QelUtilVideo::device
