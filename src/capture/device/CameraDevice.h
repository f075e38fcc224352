#pragma once

#include "capture/device/Device.h"

#include <QelUtilVideo/CapturableCamera.h>

#include <memory>
#include <string>

namespace QelUtilVideo::device {

/// A camera.
class CameraDevice final : public Device, public CapturableCamera {
  struct Key {};

 public:
  static std::shared_ptr<CameraDevice> make(Root& root, std::shared_ptr<AVCaptureDevice> device);
  CameraDevice(Key, Root& root, std::shared_ptr<AVCaptureDevice> device);
  ~CameraDevice() override;

  [[nodiscard]] std::string uniqueID() const override { return uniqueID_; }
  [[nodiscard]] std::string name() const override;
  [[nodiscard]] bool isAvailable() const override;
  [[nodiscard]] bool isCamera() const override { return true; }
  [[nodiscard]] bool isScreen() const override { return false; }
  [[nodiscard]] bool isWindow() const override { return false; }

  [[nodiscard]] std::shared_ptr<AVCaptureDevice> device() const override { return device_; }
  [[nodiscard]] std::shared_ptr<AVCaptureSession> captureSession() const override;
  [[nodiscard]] std::shared_ptr<AVCaptureInput> captureInput() const override;
  [[nodiscard]] std::shared_ptr<AVCaptureVideoDataOutput> captureOutput() const override;

  Result<std::shared_ptr<Session>> makeSession() override;

 private:
  const std::shared_ptr<AVCaptureDevice> device_;
  const std::string uniqueID_;
};

}  // namespace QelUtilVideo::device
