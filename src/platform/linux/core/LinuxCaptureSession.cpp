#include "platform/linux/core/LinuxCaptureSession.h"

#include <utility>

namespace QelUtilVideo {

/// Between a stream and the session, which may go first.
class LinuxCaptureSession::Receiver final : public StreamReceiver {
 public:
  explicit Receiver(std::weak_ptr<LinuxCaptureSession> session) : session_(std::move(session)) {}

  void sample(CMSampleBuffer sample) override {
    if (const auto session = session_.lock()) session->deliver(*this, std::move(sample));
  }
  void interrupted(const std::string& reason) override {
    if (const auto session = session_.lock()) session->interrupt(*this, reason);
  }
  void resumed() override {
    if (const auto session = session_.lock()) session->resume(*this);
  }
  void failed(const NSError& error) override {
    if (const auto session = session_.lock()) session->fail(*this, error);
  }

 private:
  const std::weak_ptr<LinuxCaptureSession> session_;
};

LinuxCaptureSession::~LinuxCaptureSession() {
  const auto stream = state_.with([](State& state) { return std::move(state.stream); });
}

bool LinuxCaptureSession::canAddInput(const AVCaptureInput& input) {
  return dynamic_cast<const LinuxCaptureInput*>(&input) &&
         state_.with([](const State& state) { return !state.input; });
}

bool LinuxCaptureSession::canAddOutput(const AVCaptureVideoDataOutput& output) {
  return dynamic_cast<const LinuxVideoDataOutput*>(&output) &&
         state_.with([](const State& state) { return !state.output; });
}

void LinuxCaptureSession::addInput(std::shared_ptr<AVCaptureInput> input) {
  auto usable = std::dynamic_pointer_cast<LinuxCaptureInput>(std::move(input));
  state_.with([&](State& state) { state.input.swap(usable); });
}

void LinuxCaptureSession::addOutput(std::shared_ptr<AVCaptureVideoDataOutput> output) {
  auto usable = std::dynamic_pointer_cast<LinuxVideoDataOutput>(std::move(output));
  state_.with([&](State& state) { state.output.swap(usable); });
}

void LinuxCaptureSession::startRunning() {
  const std::shared_ptr<LinuxCaptureSession> self(shared_from_this(), this);
  const auto receiver = std::make_shared<Receiver>(self);
  std::unique_ptr<CaptureStream> failed;  // ends after the lock, as the next ones
  const auto input = state_.with([&](State& state) {
    std::shared_ptr<LinuxCaptureInput> chosen;
    if (state.phase != Phase::idle || !state.input) return chosen;
    failed = std::move(state.stream);
    state.phase = Phase::starting;
    state.receiver = receiver;
    state.isInterrupted = false;
    state.earlyInterruption.reset();
    state.hasEarlyEnd = false;
    state.earlyFailure.reset();
    return state.input;
  });
  if (!input) return;
  failed.reset();
  auto opened = input->open(receiver);

  std::unique_ptr<CaptureStream> refused;
  const bool isStarted = state_.with([&](State& state) {
    const bool isWanted = state.receiver == receiver;  // not stopped meanwhile
    if (!opened.hasValue()) {
      if (isWanted) state.phase = Phase::idle;
      return false;
    }
    (isWanted ? state.stream : refused) = std::move(opened.value());
    return isWanted;
  });
  if (!opened.hasValue()) return postError(opened.error());
  if (!isStarted) return;
  post(AVCaptureSessionDidStartRunningNotification);
  while (tellEarly(receiver)) continue;
}

bool LinuxCaptureSession::tellEarly(const std::shared_ptr<Receiver>& receiver) {
  std::optional<std::string> interruption;
  std::optional<NSError> failure;
  const bool isOver = state_.with([&](State& state) {
    if (state.receiver != receiver) return false;
    failure = std::exchange(state.earlyFailure, std::nullopt);
    if (failure) state.phase = Phase::idle;
    if (failure) return false;
    auto early = std::exchange(state.earlyInterruption, std::nullopt);
    if (early && !std::exchange(state.isInterrupted, true)) interruption = std::move(early);
    if (early) return false;
    if (std::exchange(state.hasEarlyEnd, false)) return std::exchange(state.isInterrupted, false);
    state.phase = Phase::running;
    return false;
  });
  if (failure) postError(*failure);
  if (interruption) postInterruption(*interruption);
  if (isOver) post(AVCaptureSessionInterruptionEndedNotification);
  return interruption || isOver;
}

void LinuxCaptureSession::stopRunning() {
  std::unique_ptr<CaptureStream> stream;
  std::shared_ptr<LinuxVideoDataOutput> output;
  const bool wasRunning = state_.with([&](State& state) {
    stream = std::move(state.stream);
    output = state.output;
    state.receiver = nullptr;
    state.earlyFailure.reset();
    // One that is being opened has told nobody yet.
    return std::exchange(state.phase, Phase::idle) != Phase::idle && stream;
  });
  stream.reset();
  if (output) output->flush();
  if (wasRunning) post(AVCaptureSessionDidStopRunningNotification);
}

void LinuxCaptureSession::deliver(const Receiver& from, CMSampleBuffer sample) {
  const auto output = state_.with([&](const State& state) {
    const bool isRunning = state.phase == Phase::running && state.receiver.get() == &from;
    return isRunning ? state.output : nullptr;
  });
  if (output) output->deliver(std::move(sample));
}

void LinuxCaptureSession::interrupt(const Receiver& from, const std::string& reason) {
  const bool isNews = state_.with([&](State& state) {
    if (state.receiver.get() != &from) return false;
    if (state.phase == Phase::starting) {
      state.earlyInterruption = reason;
      state.hasEarlyEnd = false;
    }
    return state.phase == Phase::running && !std::exchange(state.isInterrupted, true);
  });
  if (isNews) postInterruption(reason);
}

void LinuxCaptureSession::resume(const Receiver& from) {
  const bool isNews = state_.with([&](State& state) {
    if (state.receiver.get() != &from) return false;
    state.earlyInterruption.reset();
    if (state.phase == Phase::starting) {
      // It is told after what began it.
      state.hasEarlyEnd = state.isInterrupted;
      return false;
    }
    return std::exchange(state.isInterrupted, false);
  });
  if (isNews) post(AVCaptureSessionInterruptionEndedNotification);
}

void LinuxCaptureSession::fail(const Receiver& from, const NSError& error) {
  std::shared_ptr<LinuxVideoDataOutput> output;
  const bool isRunning = state_.with([&](State& state) {
    if (state.receiver.get() != &from) return false;
    output = state.output;
    if (state.phase != Phase::running) {
      state.earlyFailure = error;
      return false;
    }
    state.phase = Phase::idle;
    return true;
  });
  if (!isRunning) return;
  // What waits belongs to a capture that is over.
  if (output) output->flush();
  postError(error);
}

void LinuxCaptureSession::post(const char* name) { center_.postNotificationName(name, shared_from_this()); }

void LinuxCaptureSession::postInterruption(const std::string& reason) {
  center_.postNotificationName(AVCaptureSessionWasInterruptedNotification, shared_from_this(),
                               {{AVCaptureSessionInterruptionReasonKey, reason}});
}

void LinuxCaptureSession::postError(const NSError& error) {
  center_.postNotificationName(AVCaptureSessionRuntimeErrorNotification, shared_from_this(),
                               {{AVCaptureSessionErrorKey, error}});
}

}  // namespace QelUtilVideo
