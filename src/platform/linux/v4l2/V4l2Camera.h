#pragma once

#include "platform/linux/v4l2/CameraNode.h"

#include <QelUtilVideo/platform/AVCaptureDevice.h>

#include <atomic>
#include <string>

namespace QelUtilVideo {

/// A camera from when it is plugged in until it is pulled out; plugged in again it is another object.
class V4l2Camera final : public AVCaptureDevice {
 public:
  V4l2Camera(std::string path, CameraIdentity identity);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const CameraIdentity& identity() const { return identity_; }
  /// It has been pulled out.
  void disconnect() { isGone_ = true; }

  // AVCaptureDevice
  [[nodiscard]] std::string uniqueID() const override { return identity_.uniqueID; }
  [[nodiscard]] std::string localizedName() const override { return identity_.name; }
  /// Asks the system, too, which knows it before it tells.
  [[nodiscard]] bool isConnected() const override;
  [[nodiscard]] bool hasMediaType(AVMediaType type) const override { return type == AVMediaType::video; }

 private:
  const std::string path_;
  const CameraIdentity identity_;
  std::atomic<bool> isGone_ = false;
};

}  // namespace QelUtilVideo
