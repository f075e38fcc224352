#include "FramePlayer.h"

#include <QelUtilVideo/platform/MediaClock.h>

#include "Failure.h"
#include "HostLoop.h"

namespace qelvideo {

namespace {

/// Timestamp 0 stands for "no frame yet".
constexpr double firstTimestamp = 1;

}  // namespace

FramePlayer::FramePlayer(std::unique_ptr<Y4mReader> reader, std::shared_ptr<Cancellation> cancellation,
                         std::shared_ptr<FrameHolder> frames, std::optional<std::uint64_t> most)
    : reader_(std::move(reader)),
      cancellation_(std::move(cancellation)),
      frames_(std::move(frames)),
      thread_([this, most] { run(most); }) {}

FramePlayer::~FramePlayer() {
  cancellation_->set();
  thread_.join();
}

FramePlayer::State FramePlayer::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void FramePlayer::run(std::optional<std::uint64_t> most) {
  std::optional<std::string> failure;
  try {
    play(most);
  } catch (const Cancelled&) {
    failure = "the playing was interrupted";
  } catch (const std::exception& exception) {
    failure = exception.what();
  }
  {
    const std::lock_guard lock(mutex_);
    state_.failure = std::move(failure);
    state_.ended = true;
  }
  HostLoop::wake();
}

void FramePlayer::play(std::optional<std::uint64_t> most) {
  const double duration = reader_->header().frameDuration();
  double due = 0;
  for (std::uint64_t frame = 0; !most || frame < *most; ++frame) {
    QelUtilVideo::CVPixelBufferRef picture = reader_->next();
    if (!picture) {
      if (frame == 0) throw Failure("cannot use " + reader_->name() + ": it holds no frames");
      return;
    }
    const double now = QelUtilVideo::CACurrentMediaTime();
    // A pipe that was slow does not make the frames after it hurry.
    if (frame == 0 || now > due + duration) due = now;
    if (due > now && !cancellation_->pause(due - now)) throw Cancelled{};
    due += duration;

    const std::lock_guard lock(mutex_);
    state_.frames = frame + 1;
    state_.width = picture->width();
    state_.height = picture->height();
    frames_->show(std::move(picture), firstTimestamp + static_cast<double>(frame) * duration);
  }
}

}  // namespace qelvideo
