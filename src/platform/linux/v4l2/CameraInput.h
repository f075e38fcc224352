#pragma once

#include "platform/linux/core/CameraPicture.h"
#include "platform/linux/core/CaptureStream.h"
#include "platform/linux/v4l2/NodeTurns.h"
#include "platform/linux/v4l2/V4l2Camera.h"

#include <functional>
#include <memory>

namespace QelUtilVideo {

/// Streams of a camera in its best mode. Each has a thread of its own.
class CameraInput final : public LinuxCaptureInput {
 public:
  using MakeMaker = std::function<MakeCameraFrame()>;

  /// `makeMaker` makes one maker for each stream.
  CameraInput(std::shared_ptr<const V4l2Camera> camera, std::shared_ptr<NodeTurns> turns,
              MakeMaker makeMaker);

  /// Waits up to five seconds for another stream of this process to close the camera. A camera that nothing
  /// comes from for two seconds counts as interrupted. Another one that took its place is not opened.
  [[nodiscard]] Result<std::unique_ptr<CaptureStream>> open(
      const std::shared_ptr<StreamReceiver>& receiver) override;

 private:
  const std::shared_ptr<const V4l2Camera> camera_;
  const std::shared_ptr<NodeTurns> turns_;
  const MakeMaker makeMaker_;
};

}  // namespace QelUtilVideo
