#pragma once

#include "platform/CaptureDevices.h"

#include <memory>
#include <string>

namespace QelUtilVideo {

/// The domain of errors of capture devices; their codes are those of the operating system.
inline constexpr const char* kCaptureErrorDomain = "QelUtilVideo.platform.capture";

/// What a running stream gives. Called on the stream's own thread, one call at a time; a call may end in the
/// stream's destruction.
class StreamReceiver {
 public:
  virtual ~StreamReceiver() = default;
  virtual void sample(CMSampleBuffer sample) = 0;
  /// Nothing comes for the time being; `reason` is for people.
  virtual void interrupted(const std::string& reason) = 0;
  /// An interruption has ended.
  virtual void resumed() = 0;
  /// The stream has ended by itself: its device is gone, or broke down. The last call.
  virtual void failed(const NSError& error) = 0;
};

/// Takes samples from a device while it lives. When its destructor returns, no sample is taken any more; on
/// the stream's own thread, when the call under way returns.
class CaptureStream {
 public:
  virtual ~CaptureStream() = default;
};

/// An input that sessions of this platform can run.
class LinuxCaptureInput : public AVCaptureInput {
 public:
  /// Opens the device, which may take a while, and begins to take samples. Any thread.
  [[nodiscard]] virtual Result<std::unique_ptr<CaptureStream>> open(
      const std::shared_ptr<StreamReceiver>& receiver) = 0;
};

}  // namespace QelUtilVideo
