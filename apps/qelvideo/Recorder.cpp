#include "Recorder.h"

#include <QelUtilVideo/Capturable.h>

#include <cstdio>

#include "Failure.h"
#include "HostLoop.h"
#include "Terminal.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

/// Seconds after which a source that neither starts nor fails is given up.
constexpr double startTimeout = 10;

std::string endedRemedy(const Capturable& source) {
  if (source.isCamera())
    return "; `qelvideo list` shows what there is, and `qelvideo doctor` looks at cameras";
  return "; the display may have been disconnected, the window closed, or their X server ended: `qelvideo "
         "list` "
         "shows what there is";
}

std::string text(const NSError& error) {
  return error.description() + " (" + error.domain + " " + std::to_string(error.code) + ")";
}

}  // namespace

Recorder::Recorder(Terminal& terminal, RecordingLimits limits, std::shared_ptr<FrameConsumer> consumer)
    : terminal_(terminal), limits_(limits), consumer_(std::move(consumer)) {}

bool Recorder::started() const {
  const std::lock_guard lock(mutex_);
  return started_;
}

bool Recorder::ended() const {
  const std::lock_guard lock(mutex_);
  return ended_;
}

Recording Recorder::finish() {
  std::unique_lock lock(mutex_);
  ended_ = true;
  idle_.wait(lock, [this] { return !busy_; });
  return recording_;
}

void Recorder::capturableWillStartRunning(const std::shared_ptr<Capturable>&) {
  terminal_.note("session: will start");
}

void Recorder::capturableDidFailToStartRunning(const std::shared_ptr<Capturable>& source,
                                               const NSError& error) {
  terminal_.note("session: did fail to start: " + text(error));
  end("the capture did not start: " + text(error) + endedRemedy(*source));
}

void Recorder::capturableDidStartRunning(const std::shared_ptr<Capturable>&) {
  terminal_.note("session: did start");
  {
    const std::lock_guard lock(mutex_);
    started_ = true;
  }
  HostLoop::wake();
}

void Recorder::capturableDidStopRunning(const std::shared_ptr<Capturable>& source, const NSError* error) {
  terminal_.note("session: did stop" + (error ? ": " + text(*error) : std::string()));
  std::optional<std::string> failure;
  if (error) failure = "the capture ended: " + text(*error) + endedRemedy(*source);
  end(std::move(failure));
}

void Recorder::capturableDidBeginInterruption(const std::shared_ptr<Capturable>&,
                                              const Dictionary* userInfo) {
  std::string line = "session: did begin interruption";
  if (userInfo && !userInfo->empty()) line += " " + Value(*userInfo).description();
  terminal_.note(line);
}

void Recorder::capturableDidEndInterruption(const std::shared_ptr<Capturable>&) {
  terminal_.note("session: did end interruption");
}

void Recorder::capturableDidOutput(const std::shared_ptr<Capturable>&, const CVPixelBufferRef& frame,
                                   double timestamp) {
  if (!takes(timestamp)) return;
  FrameConsumer::Verdict verdict = FrameConsumer::Verdict::more;
  try {
    if (consumer_) {
      verdict = consumer_->consume(frame, timestamp);
    } else {
      noteSizeChange(*frame);
    }
    taken(*frame, timestamp, verdict);
  } catch (const std::exception& exception) {
    end(exception.what());
  }
  {
    const std::lock_guard lock(mutex_);
    busy_ = false;
  }
  idle_.notify_all();
}

/// Whether the recording wants the frame of this time; then it is busy until told otherwise.
bool Recorder::takes(double timestamp) {
  bool past = false;
  {
    const std::lock_guard lock(mutex_);
    if (ended_) return false;
    past = limits_.seconds && recording_.frames > 0 &&
           timestamp > recording_.firstTime + *limits_.seconds - 0.5 / limits_.framesPerSecond;
    busy_ = !past;
  }
  if (past) end(std::nullopt);
  return !past;
}

void Recorder::taken(const CVPixelBuffer& frame, double timestamp, FrameConsumer::Verdict verdict) {
  bool enough = verdict == FrameConsumer::Verdict::enough;
  char progress[64];
  {
    const std::lock_guard lock(mutex_);
    if (verdict == FrameConsumer::Verdict::more) {
      if (recording_.frames++ == 0) recording_.firstTime = timestamp;
      recording_.lastTime = timestamp;
      recording_.width = frame.width();
      recording_.height = frame.height();
    }
    enough = enough || (limits_.frames && recording_.frames >= *limits_.frames);
    std::snprintf(progress, sizeof progress, "frame %llu, %.1f s",
                  static_cast<unsigned long long>(recording_.frames),
                  recording_.lastTime - recording_.firstTime);
  }
  terminal_.progress(progress);
  if (enough) end(std::nullopt);
}

void Recorder::end(std::optional<std::string> failure) {
  {
    const std::lock_guard lock(mutex_);
    // What happens to a recording that has ended is not its failure.
    if (!ended_) recording_.failure = std::move(failure);
    ended_ = true;
  }
  HostLoop::wake();
}

void Recorder::noteSizeChange(const CVPixelBuffer& frame) {
  std::string size;
  {
    const std::lock_guard lock(mutex_);
    if (recording_.frames == 0) return;
    if (recording_.width == frame.width() && recording_.height == frame.height()) return;
    size = std::to_string(frame.width()) + "x" + std::to_string(frame.height());
  }
  terminal_.note("the source changed its size to " + size);
}

Recording record(HostLoop& loop, const std::shared_ptr<Capturable>& source,
                 const std::shared_ptr<Recorder>& recorder, const std::function<bool()>& done) {
  const auto isDone = [&] { return done ? done() : recorder->ended(); };
  NSError error;
  if (!source->start(recorder, &error)) {
    throw Failure("cannot capture " + source->uniqueID() + ": " + text(error));
  }
  const auto begun = [&] { return recorder->started() || recorder->ended(); };
  const HostLoop::End start = loop.runUntil(begun, startTimeout);
  if (start == HostLoop::End::done) {
    loop.runUntil(isDone, recorder->limits().seconds);
  }
  source->stop();
  Recording recording = recorder->finish();
  if (start == HostLoop::End::timedOut && !recording.failure) {
    recording.failure = source->uniqueID() + " did not start within 10 seconds";
  }
  return recording;
}

}  // namespace qelvideo
