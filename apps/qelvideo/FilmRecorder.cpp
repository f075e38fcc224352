#include "FilmRecorder.h"

#include "Failure.h"
#include "FilmTimeline.h"
#include "HostLoop.h"
#include "Y4mWriter.h"

namespace qelvideo {

using QelUtilVideo::CVPixelBufferRef;

namespace {

/// Pictures that wait for a slow reader; at 3840 x 2160 they take 100 MB.
constexpr std::size_t mostWaiting = 8;
/// Seconds that an interrupted program still gives a stuck output.
constexpr double patience = 2;

std::string sizeText(std::size_t width, std::size_t height) {
  return std::to_string(width) + "x" + std::to_string(height);
}

}  // namespace

FilmRecorder::FilmRecorder(ByteOutput output, std::shared_ptr<Cancellation> cancellation, int framesPerSecond)
    : framesPerSecond_(framesPerSecond),
      output_(std::move(output)),
      cancellation_(std::move(cancellation)),
      thread_([this] { run(); }) {}

FilmRecorder::~FilmRecorder() {
  if (!thread_.joinable()) return;
  cancellation_->set();
  {
    const std::lock_guard lock(mutex_);
    if (!endTime_) endTime_ = 0;
  }
  changed_.notify_all();
  thread_.join();
}

FrameConsumer::Verdict FilmRecorder::consume(const CVPixelBufferRef& frame, double timestamp) {
  if (width_ == 0) {
    width_ = frame->width();
    height_ = frame->height();
  }
  if (frame->width() != width_ || frame->height() != height_) {
    throw Failure("the source changed its size from " + sizeText(width_, height_) + " to " +
                  sizeText(frame->width(), frame->height()) +
                  "; a Y4M film has one size, so this one ends here: record the new size to another file");
  }
  CVPixelBufferRef picture = converter_.convert(frame);
  if (!picture) throw Failure("there is no memory for a picture of " + sizeText(width_, height_));
  const std::lock_guard lock(mutex_);
  if (ended_) return Verdict::enough;
  if (waiting_.size() >= mostWaiting) {
    ++summary_.dropped;
  } else {
    waiting_.push_back({std::move(picture), timestamp});
    changed_.notify_all();
  }
  return Verdict::more;
}

FilmRecorder::Summary FilmRecorder::finish(HostLoop& loop, double endTime) {
  {
    const std::lock_guard lock(mutex_);
    endTime_ = endTime;
  }
  changed_.notify_all();
  const auto ended = [this] {
    const std::lock_guard lock(mutex_);
    return ended_;
  };
  if (loop.runUntil(ended) != HostLoop::End::done) {
    loop.runUntil(ended, patience, HostLoop::Interruption::ignore);
    cancellation_->set();
  }
  thread_.join();
  return summary_;
}

void FilmRecorder::run() {
  std::optional<std::string> failure;
  try {
    writeFilm();
  } catch (const std::exception& exception) {
    failure = exception.what();
  }
  {
    const std::lock_guard lock(mutex_);
    summary_.failure = failure;
    summary_.bytes = output_.bytesWritten();
    ended_ = true;
    waiting_.clear();
  }
  HostLoop::wake();
}

void FilmRecorder::writeFilm() {
  std::optional<Y4mWriter> writer;
  FilmTimeline timeline(framesPerSecond_);
  while (const std::optional<Frame> frame = nextFrame()) {
    if (!writer) {
      Y4mHeader header;
      header.width = frame->picture->width();
      header.height = frame->picture->height();
      header.rateNumerator = framesPerSecond_;
      writer.emplace(output_, header);
    }
    const FilmTimeline::Placement placement = timeline.place(frame->timestamp);
    if (!repeatLast(*writer, placement.repeats)) return;
    if (placement.written && !goesOn(writer->write(*frame->picture))) return;
  }
  if (writer && !repeatLast(*writer, timeline.extendTo(*endTime_))) return;
  output_.close();
}

/// Absent: the recording has ended and nothing waits any more.
std::optional<FilmRecorder::Frame> FilmRecorder::nextFrame() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !waiting_.empty() || endTime_; });
  if (waiting_.empty()) return std::nullopt;
  Frame frame = std::move(waiting_.front());
  waiting_.pop_front();
  return frame;
}

bool FilmRecorder::repeatLast(Y4mWriter& writer, std::uint64_t times) {
  for (; times > 0; --times) {
    if (!goesOn(writer.repeat())) return false;
    const std::lock_guard lock(mutex_);
    ++summary_.repeated;
  }
  return true;
}

bool FilmRecorder::goesOn(ByteOutput::Outcome outcome) {
  if (outcome == ByteOutput::Outcome::readerGone) {
    const std::lock_guard lock(mutex_);
    summary_.readerGone = true;
  }
  return outcome == ByteOutput::Outcome::written;
}

}  // namespace qelvideo
