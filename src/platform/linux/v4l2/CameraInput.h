#pragma once

#include "platform/linux/core/CameraPicture.h"
#include "platform/linux/core/CaptureStream.h"
#include "platform/linux/v4l2/NodeTurns.h"

#include <functional>
#include <memory>
#include <string>

namespace QelUtilVideo {

/// Streams of a camera in its best mode. Each has a thread of its own.
class CameraInput final : public LinuxCaptureInput {
 public:
  using MakeMaker = std::function<MakeCameraFrame()>;

  /// `makeMaker` makes one maker for each stream.
  CameraInput(std::string path, std::shared_ptr<NodeTurns> turns, MakeMaker makeMaker);

  /// Waits up to five seconds for another stream of this process to close the camera. A camera that nothing
  /// comes from for two seconds counts as interrupted.
  [[nodiscard]] Result<std::unique_ptr<CaptureStream>> open(
      const std::shared_ptr<StreamReceiver>& receiver) override;

 private:
  const std::string path_;
  const std::shared_ptr<NodeTurns> turns_;
  const MakeMaker makeMaker_;
};

}  // namespace QelUtilVideo
