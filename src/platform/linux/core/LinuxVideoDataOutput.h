#pragma once

#include "platform/CaptureDevices.h"
#include "platform/Synchronised.h"

#include <optional>

namespace QelUtilVideo {

/// Hands samples over on the delegate's queue; keeps the latest one while the delegate is busy. Any thread.
class LinuxVideoDataOutput final : public AVCaptureVideoDataOutput {
 public:
  void deliver(CMSampleBuffer sample);
  /// Forgets a sample that waits.
  void flush();

  // AVCaptureVideoDataOutput
  void setSampleBufferDelegate(std::weak_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate,
                               std::shared_ptr<DispatchQueue> queue) override;

 private:
  struct State {
    std::weak_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate;
    std::shared_ptr<DispatchQueue> queue;
    std::optional<CMSampleBuffer> waiting;
    bool isQueued = false;  ///< a block will take what waits
  };
  void takeWaiting();

  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
