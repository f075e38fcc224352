#pragma once

#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "ByteOutput.h"
#include "FrameConsumer.h"

namespace qelvideo {

class HostLoop;
class Y4mWriter;

/// Turns captured frames into a Y4M film of a constant frame rate. Frames are converted on the delivery
/// queue and written by a thread of its own, so that a slow reader never holds up the capture; when it
/// falls too far behind, frames are dropped, and the film repeats others in their place.
class FilmRecorder final : public FrameConsumer {
 public:
  struct Summary {
    std::uint64_t repeated = 0;  ///< times a frame was written again to keep the film's time
    std::uint64_t dropped = 0;   ///< frames that came while the output was too slow
    std::uint64_t bytes = 0;
    bool readerGone = false;  ///< whoever read the film wanted no more of it
    std::optional<std::string> failure;
  };

  /// `cancellation` is the output's; `framesPerSecond`, above 0, the film's.
  FilmRecorder(ByteOutput output, std::shared_ptr<Cancellation> cancellation, int framesPerSecond);
  ~FilmRecorder() override;

  Verdict consume(const QelUtilVideo::CVPixelBufferRef& frame, double timestamp) override;
  /// Writes what is waiting, extends the film to `endTime` and closes it. An interruption of the loop
  /// lets a stuck output have two more seconds. Main thread, once, after the last frame.
  [[nodiscard]] Summary finish(HostLoop& loop, double endTime);

 private:
  struct Frame {
    QelUtilVideo::CVPixelBufferRef picture;
    double timestamp = 0;
  };

  void run();
  void writeFilm();
  [[nodiscard]] std::optional<Frame> nextFrame();
  [[nodiscard]] bool repeatLast(Y4mWriter& writer, std::uint64_t times);
  [[nodiscard]] bool goesOn(ByteOutput::Outcome outcome);

  const int framesPerSecond_;
  ByteOutput output_;
  std::shared_ptr<Cancellation> cancellation_;
  QelUtilVideo::PixelBufferConverter converter_;
  std::size_t width_ = 0;
  std::size_t height_ = 0;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Frame> waiting_;
  std::optional<double> endTime_;
  bool ended_ = false;
  Summary summary_;

  std::thread thread_;
};

}  // namespace qelvideo
