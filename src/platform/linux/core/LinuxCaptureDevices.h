#pragma once

#include "platform/CaptureDevices.h"
#include "platform/linux/core/CameraSource.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <functional>
#include <memory>
#include <vector>

namespace QelUtilVideo {

/// Sessions and outputs of this platform; what they run comes from those who know the devices. Any thread.
class LinuxCaptureDevices final : public CaptureDevices {
 public:
  using MakeScreenInput = std::function<std::shared_ptr<AVCaptureInput>(CGDirectDisplayID)>;

  /// The notification centre and the cameras outlive the object.
  LinuxCaptureDevices(NotificationCenter& center, CameraSource& cameras, MakeScreenInput makeScreenInput);

  // CaptureDevices
  [[nodiscard]] std::vector<std::shared_ptr<AVCaptureDevice>> devicesWithMediaType(AVMediaType type) override;
  [[nodiscard]] Result<std::shared_ptr<AVCaptureInput>> makeDeviceInput(
      const std::shared_ptr<AVCaptureDevice>& device) override;
  [[nodiscard]] std::shared_ptr<AVCaptureInput> makeScreenInput(CGDirectDisplayID display) override;
  [[nodiscard]] std::shared_ptr<AVCaptureSession> makeSession() override;
  [[nodiscard]] std::shared_ptr<AVCaptureVideoDataOutput> makeVideoDataOutput() override;

 private:
  NotificationCenter& center_;
  CameraSource& cameras_;
  const MakeScreenInput makeScreenInput_;
};

}  // namespace QelUtilVideo
