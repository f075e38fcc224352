#pragma once

#include <QelUtilVideo/CapturableOutputDelegate.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "FrameConsumer.h"

namespace qelvideo {

class HostLoop;
class Terminal;

/// When a recording ends by itself; neither: it goes on until it is interrupted.
struct RecordingLimits {
  std::optional<std::uint64_t> frames;
  std::optional<double> seconds;
  int framesPerSecond = 10;  ///< of the source: a frame half an interval before the end is one too many
};

/// What a recording was.
struct Recording {
  std::uint64_t frames = 0;
  double firstTime = 0;  ///< timestamp of the first frame, seconds of the media clock
  double lastTime = 0;   ///< of the last one
  std::size_t width = 0;
  std::size_t height = 0;
  std::optional<std::string> failure;  ///< why it ended before its limits, when something went wrong
};

/// Follows one capture: prints its events, hands its frames to a consumer, and knows when enough came.
/// Make it for one `record` and keep it until that returns.
class Recorder final : public QelUtilVideo::CapturableOutputDelegate {
 public:
  /// Without a consumer frames are only counted.
  Recorder(Terminal& terminal, RecordingLimits limits, std::shared_ptr<FrameConsumer> consumer);

  [[nodiscard]] const RecordingLimits& limits() const { return limits_; }
  /// Any thread.
  [[nodiscard]] bool started() const;
  [[nodiscard]] bool ended() const;
  /// Lets no further frame reach the consumer, waits for one under way, and says what there was.
  [[nodiscard]] Recording finish();

  // CapturableOutputDelegate
  void capturableWillStartRunning(const std::shared_ptr<QelUtilVideo::Capturable>&) override;
  void capturableDidFailToStartRunning(const std::shared_ptr<QelUtilVideo::Capturable>&,
                                       const QelUtilVideo::NSError& error) override;
  void capturableDidStartRunning(const std::shared_ptr<QelUtilVideo::Capturable>&) override;
  void capturableDidStopRunning(const std::shared_ptr<QelUtilVideo::Capturable>&,
                                const QelUtilVideo::NSError* error) override;
  void capturableDidBeginInterruption(const std::shared_ptr<QelUtilVideo::Capturable>&,
                                      const QelUtilVideo::Dictionary* userInfo) override;
  void capturableDidEndInterruption(const std::shared_ptr<QelUtilVideo::Capturable>&) override;
  void capturableDidOutput(const std::shared_ptr<QelUtilVideo::Capturable>&,
                           const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) override;

 private:
  [[nodiscard]] bool takes(double timestamp);
  void taken(const QelUtilVideo::CVPixelBuffer& frame, double timestamp, FrameConsumer::Verdict verdict);
  void end(std::optional<std::string> failure);
  void noteSizeChange(const QelUtilVideo::CVPixelBuffer& frame);

  Terminal& terminal_;
  const RecordingLimits limits_;
  const std::shared_ptr<FrameConsumer> consumer_;

  mutable std::mutex mutex_;
  std::condition_variable idle_;
  Recording recording_;
  bool started_ = false;
  bool ended_ = false;
  bool busy_ = false;
};

/// Captures the source until the recorder has enough, the loop is interrupted or the capture ends, and
/// stops it; with `done`, until that is true instead, which is asked at each turn of the loop. Throws
/// `Failure` when it cannot be started. Main thread.
[[nodiscard]] Recording record(HostLoop& loop, const std::shared_ptr<QelUtilVideo::Capturable>& source,
                               const std::shared_ptr<Recorder>& recorder,
                               const std::function<bool()>& done = {});

}  // namespace qelvideo
