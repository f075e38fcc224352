#pragma once

#include <QelUtilVideo/Capturable.h>

namespace QelUtilVideo {

class AVCaptureDevice;
class AVCaptureInput;
class AVCaptureSession;
class AVCaptureVideoDataOutput;

/// A source that is a camera. Any thread.
class QEL_EXPORT CapturableCamera : public virtual Capturable {
 public:
  [[nodiscard]] virtual std::shared_ptr<AVCaptureDevice> device() const = 0;
  /// The three parts of the capture under way; null while there is none.
  [[nodiscard]] virtual std::shared_ptr<AVCaptureSession> captureSession() const = 0;
  [[nodiscard]] virtual std::shared_ptr<AVCaptureInput> captureInput() const = 0;
  [[nodiscard]] virtual std::shared_ptr<AVCaptureVideoDataOutput> captureOutput() const = 0;
};

}  // namespace QelUtilVideo
