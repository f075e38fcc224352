#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/core/CameraSource.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/v4l2/CameraInput.h"
#include "platform/linux/v4l2/NodeSource.h"
#include "platform/linux/v4l2/V4l2Camera.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// The cameras of the system, and notifications on the main thread of those that come and go.
class V4l2Cameras final : public CameraSource {
 public:
  /// Looks for nodes in `folder`, and asks the device manager where there is one. Loop and notification
  /// centre outlive the object; it goes on the main thread.
  V4l2Cameras(EventLoop& loop, NotificationCenter& center, CameraInput::MakeMaker makeMaker,
              const std::string& folder = "/dev");

  // CameraSource
  /// In the order of the nodes' numbers; those that came later after them.
  [[nodiscard]] std::vector<std::shared_ptr<AVCaptureDevice>> cameras() override;
  /// Errors: the camera is gone, or this user may not open it.
  [[nodiscard]] Result<std::shared_ptr<AVCaptureInput>> makeInput(const AVCaptureDevice& camera) override;

 private:
  using Cameras = std::vector<std::shared_ptr<V4l2Camera>>;

  void add(const CameraNode& node);
  void remove(const std::string& path);
  [[nodiscard]] bool isListed(const std::string& path) const;

  NotificationCenter& center_;
  const CameraInput::MakeMaker makeMaker_;
  const std::shared_ptr<NodeTurns> turns_ = std::make_shared<NodeTurns>();
  Synchronised<Cameras> cameras_;
  std::atomic<bool> isComplete_ = false;  ///< the nodes that were there from the start are listed
  // They go first.
  std::vector<std::unique_ptr<NodeSource>> sources_;
};

}  // namespace QelUtilVideo
