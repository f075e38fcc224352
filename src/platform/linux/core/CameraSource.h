#pragma once

#include "platform/CaptureDevices.h"

#include <memory>
#include <vector>

namespace QelUtilVideo {

/// Who knows the cameras. Any thread.
class CameraSource {
 public:
  virtual ~CameraSource() = default;
  /// Those that are there. A camera that stays is the same object.
  [[nodiscard]] virtual std::vector<std::shared_ptr<AVCaptureDevice>> cameras() = 0;
  /// An input of one of them, or why there is none.
  [[nodiscard]] virtual Result<std::shared_ptr<AVCaptureInput>> makeInput(const AVCaptureDevice& camera) = 0;
};

}  // namespace QelUtilVideo
