#include "platform/linux/v4l2/CameraInput.h"

#include "platform/linux/core/StreamThread.h"
#include "platform/linux/v4l2/CameraBuffers.h"
#include "platform/linux/v4l2/CameraErrors.h"
#include "platform/linux/v4l2/CameraFrames.h"
#include "platform/linux/v4l2/StreamFormat.h"
#include "platform/linux/v4l2/VideoNode.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

namespace QelUtilVideo {

namespace {

using namespace std::chrono_literals;

/// Some for the driver, some for those who look at frames.
constexpr std::uint32_t kBufferCount = 6;
constexpr std::chrono::milliseconds kTurnPatience = 5s;
constexpr std::chrono::nanoseconds kFramePatience = 2s;
/// A driver that promises a picture that often without having one has broken down.
constexpr int kMostPromises = 1000;
constexpr const char* kSilence = "The camera has sent no picture for 2 seconds";

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// A camera that streams. What it took is given up in the opposite order.
struct RunningCamera {
  std::string path;
  std::unique_ptr<NodeTurns::Turn> turn;
  std::shared_ptr<VideoNode> node;
  std::shared_ptr<CameraBuffers> buffers;
  std::optional<CameraFrames> frames;

  RunningCamera() = default;
  RunningCamera(const RunningCamera&) = delete;
  RunningCamera& operator=(const RunningCamera&) = delete;
  ~RunningCamera() {
    if (buffers) buffers->end();
  }

  /// Why it has ended, when a call said so.
  [[nodiscard]] NSError whyEnded(int error) const {
    const bool isGone = error == ENODEV || error == ENXIO || error == ENOTCONN;
    return isGone || ::access(path.c_str(), F_OK) != 0 ? cameraUnplugged() : cameraError(path, error);
  }
};

/// Sends frames until it is stopped, or none come any more.
void stream(RunningCamera& camera, StreamReceiver& receiver, const StreamThread::Stop& stop) {
  bool isInterrupted = false;
  int promises = 0;
  for (;;) {
    const auto patience = isInterrupted ? std::nullopt : std::optional(kFramePatience);
    const VideoNode::Awaited awaited = camera.node->wait(stop.descriptor(), patience);
    if (awaited == VideoNode::Awaited::stop) return;
    if (awaited == VideoNode::Awaited::silence) {
      // It will have nothing to say without a buffer to fill.
      if (camera.buffers->waiting() == 0) return receiver.failed(camera.whyEnded(EIO));
      isInterrupted = true;
      receiver.interrupted(kSilence);
      continue;
    }
    CameraBuffers::Taken taken = camera.buffers->take();
    // Without a buffer in the driver's hands there will be none.
    if (taken.error == EAGAIN && camera.buffers->waiting() > 0 && ++promises < kMostPromises) continue;
    promises = 0;
    if (!taken.buffer) return receiver.failed(camera.whyEnded(taken.error == EAGAIN ? EIO : taken.error));
    if (std::exchange(isInterrupted, false)) receiver.resumed();
    const double time = taken.buffer->time > 0 ? taken.buffer->time : now();
    receiver.sample({camera.frames->make(*taken.buffer), time});
  }
}

class CameraStream final : public CaptureStream {
 public:
  CameraStream(std::shared_ptr<RunningCamera> camera, std::shared_ptr<StreamReceiver> receiver)
      : thread_([camera = std::move(camera), receiver = std::move(receiver)](const StreamThread::Stop& stop) {
          try {
            stream(*camera, *receiver, stop);
          } catch (const std::exception& exception) {
            receiver->failed({kCaptureErrorDomain, ENOMEM, exception.what()});
          }
        }) {}

 private:
  StreamThread thread_;
};

}  // namespace

CameraInput::CameraInput(std::shared_ptr<const V4l2Camera> camera, std::shared_ptr<NodeTurns> turns,
                         MakeMaker makeMaker)
    : camera_(std::move(camera)), turns_(std::move(turns)), makeMaker_(std::move(makeMaker)) {}

Result<std::unique_ptr<CaptureStream>> CameraInput::open(
    const std::shared_ptr<StreamReceiver>& receiver) try {
  auto camera = std::make_shared<RunningCamera>();
  const std::string& path = camera_->path();
  camera->path = path;
  camera->turn = turns_->take(path, kTurnPatience);
  if (!camera->turn) return cameraTaken();
  if (!camera_->isConnected()) return cameraError(path, ENODEV);
  auto [node, error] = openVideoNode(path);
  if (!node) return cameraError(path, error);
  if (!isStill(camera_->identity(), *node)) return cameraError(path, ENODEV);
  camera->node = std::move(node);
  auto format = agreeOnFormat(*camera->node, path);
  if (!format.hasValue()) return format.error();
  error = CameraBuffers::make(camera->node, format.value().type, kBufferCount, camera->buffers);
  if (error) return cameraError(path, error);
  camera->frames.emplace(format.value(), camera->buffers, makeMaker_());
  if ((error = camera->buffers->begin())) return cameraError(path, error);
  return std::unique_ptr<CaptureStream>(std::make_unique<CameraStream>(std::move(camera), receiver));
} catch (const std::exception& exception) {
  return NSError{kCaptureErrorDomain, ENOMEM, exception.what()};
}

}  // namespace QelUtilVideo
