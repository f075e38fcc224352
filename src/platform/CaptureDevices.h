#pragma once

#include "platform/Result.h"

#include <QelUtilVideo/platform/AVCaptureDevice.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/NSObject.h>
#include <QelUtilVideo/platform/NSScreen.h>

#include <memory>
#include <vector>

namespace QelUtilVideo {

class AVCaptureVideoDataOutput;
class DispatchQueue;

// Posted when a device comes or goes, with the `AVCaptureDevice` as object, on any thread but a queue of the
// library's. It is told what it can see already: the list of devices has the one that came, and no more the
// one that went.
inline constexpr const char* AVCaptureDeviceWasConnectedNotification =
    "AVCaptureDeviceWasConnectedNotification";
inline constexpr const char* AVCaptureDeviceWasDisconnectedNotification =
    "AVCaptureDeviceWasDisconnectedNotification";

// What a session tells of itself, posted with the `AVCaptureSession` as object, on any thread, one after
// another. A runtime error comes with AVCaptureSessionErrorKey, before or after a start; after one that ends
// a running session it is not said that the session stopped running.
inline constexpr const char* AVCaptureSessionRuntimeErrorNotification =
    "AVCaptureSessionRuntimeErrorNotification";
inline constexpr const char* AVCaptureSessionDidStartRunningNotification =
    "AVCaptureSessionDidStartRunningNotification";
inline constexpr const char* AVCaptureSessionDidStopRunningNotification =
    "AVCaptureSessionDidStopRunningNotification";
inline constexpr const char* AVCaptureSessionWasInterruptedNotification =
    "AVCaptureSessionWasInterruptedNotification";
inline constexpr const char* AVCaptureSessionInterruptionEndedNotification =
    "AVCaptureSessionInterruptionEndedNotification";
/// In the user information: an `NSError`.
inline constexpr const char* AVCaptureSessionErrorKey = "AVCaptureSessionErrorKey";
/// In the user information of an interruption: a string for people.
inline constexpr const char* AVCaptureSessionInterruptionReasonKey = "AVCaptureSessionInterruptionReasonKey";

/// What a device delivers.
struct CMSampleBuffer {
  CVPixelBufferRef imageBuffer;  ///< null: the sample has no picture
  double presentationTime = 0;   ///< seconds, by the device's own clock
};

[[nodiscard]] inline const CVPixelBufferRef& CMSampleBufferGetImageBuffer(const CMSampleBuffer& sample) {
  return sample.imageBuffer;
}

/// Where samples come from: a device that somebody asked for.
class AVCaptureInput : public virtual NSObject {};

class AVCaptureVideoDataOutputSampleBufferDelegate {
 public:
  virtual ~AVCaptureVideoDataOutputSampleBufferDelegate() = default;
  /// Called on the delivery queue, one sample at a time. The sample is borrowed for the call.
  virtual void captureOutput(AVCaptureVideoDataOutput& output, const CMSampleBuffer& sample) = 0;
};

/// Where samples go. Any thread.
class AVCaptureVideoDataOutput : public virtual NSObject {
 public:
  /// Holds the queue, and the delegate weakly. While the delegate is busy, samples that come are dropped, all
  /// but the last one.
  virtual void setSampleBufferDelegate(std::weak_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate,
                                       std::shared_ptr<DispatchQueue> queue) = 0;
};

/// Brings one input's samples to one output. Any thread. One that is dropped while it runs stops.
class AVCaptureSession : public virtual NSObject {
 public:
  [[nodiscard]] virtual bool canAddInput(const AVCaptureInput& input) = 0;
  [[nodiscard]] virtual bool canAddOutput(const AVCaptureVideoDataOutput& output) = 0;
  virtual void addInput(std::shared_ptr<AVCaptureInput> input) = 0;
  virtual void addOutput(std::shared_ptr<AVCaptureVideoDataOutput> output) = 0;
  /// Returns when the session runs or has failed to, having posted which. One that runs goes on. Samples
  /// follow the notification.
  virtual void startRunning() = 0;
  /// Returns when no sample is taken any more, having posted that, unless it did not run. May be called from
  /// inside a notification or a delivery.
  virtual void stopRunning() = 0;
};

/// Devices that stream, and how to take their streams. Any thread.
class CaptureDevices {
 public:
  virtual ~CaptureDevices() = default;

  /// All devices of that kind, in the platform's order. A device that stays is the same object.
  [[nodiscard]] virtual std::vector<std::shared_ptr<AVCaptureDevice>> devicesWithMediaType(
      AVMediaType type) = 0;
  /// An input of the device, or the platform's error.
  [[nodiscard]] virtual Result<std::shared_ptr<AVCaptureInput>> makeDeviceInput(
      const std::shared_ptr<AVCaptureDevice>& device) = 0;
  /// An input of what the display shows; null when there is no such display.
  [[nodiscard]] virtual std::shared_ptr<AVCaptureInput> makeScreenInput(CGDirectDisplayID display) = 0;
  /// With the default preset. Never null.
  [[nodiscard]] virtual std::shared_ptr<AVCaptureSession> makeSession() = 0;
  /// With the default settings. Never null.
  [[nodiscard]] virtual std::shared_ptr<AVCaptureVideoDataOutput> makeVideoDataOutput() = 0;
};

}  // namespace QelUtilVideo
