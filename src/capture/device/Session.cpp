#include "capture/device/Session.h"

#include "capture/EventSequencer.h"
#include "capture/SessionStatistics.h"
#include "log/Log.h"
#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "platform/SystemVersion.h"

#include <optional>
#include <utility>

namespace QelUtilVideo::device {
namespace {

constexpr const char* kOperationQueue = "QelUtilVideo.CapturableDevice.OperationQueue";
constexpr const char* kOutputQueue = "QelUtilVideo.CapturableDevice.OutputQueue";

const char* caseName(Session::Error error) {
  switch (error) {
    case Session::Error::cannotAddInput:
      return "cannotAddInput";
    case Session::Error::cannotAddOutput:
      return "cannotAddOutput";
  }
  return "unknown";
}

std::optional<NSError> errorOf(const NSNotification& notification) {
  const auto* error = notification.userInfo.get<NSError>(AVCaptureSessionErrorKey);
  return error ? std::optional(*error) : std::nullopt;
}

}  // namespace

NSError makeError(Session::Error error) {
  return {"QelUtilVideo.device.Session.Error", static_cast<std::int64_t>(error), caseName(error)};
}

/// What the platform makes for a session.
struct Session::Parts {
  std::shared_ptr<DispatchQueue> queue;
  std::shared_ptr<AVCaptureSession> session;
  std::shared_ptr<AVCaptureVideoDataOutput> output;
  std::shared_ptr<AVCaptureInput> input;
};

Result<std::shared_ptr<Session>> Session::make(Root& root, std::shared_ptr<AVCaptureInput> input,
                                               const std::shared_ptr<SessionDelegate>& delegate,
                                               EventSequencer& events, std::string logName) {
  Platform& platform = root.platform();
  Parts parts{platform.dispatch().makeQueue(kOperationQueue), platform.captureDevices().makeSession(),
              platform.captureDevices().makeVideoDataOutput(), std::move(input)};
  if (!parts.session->canAddInput(*parts.input)) return makeError(Error::cannotAddInput);
  if (!parts.session->canAddOutput(*parts.output)) return makeError(Error::cannotAddOutput);
  auto session =
      std::make_shared<Session>(Key{}, root, std::move(parts), delegate, events, std::move(logName));
  log(LogLevel::info, session->logName_ + " session init");
  session->observe();
  session->queue_->async([session] { session->configure(); });
  return session;
}

Session::Session(Key, Root& root, Parts parts, const std::shared_ptr<SessionDelegate>& delegate,
                 EventSequencer& events, std::string logName)
    : root_(root),
      logName_(std::move(logName)),
      queue_(std::move(parts.queue)),
      session_(std::move(parts.session)),
      output_(std::move(parts.output)),
      input_(std::move(parts.input)),
      delegate_(delegate),
      events_(events) {}

Session::~Session() {
  for (const auto token : observers_) root_.platform().notificationCenter().removeObserver(token);
  const State state = state_.with([this](State& held) {
    closeInterval(held);
    return held;
  });
  log(LogLevel::info, logName_ + " sample info: " + sessionStatistics(state.outputCount, state.duration) +
                          " failed=" + std::to_string(state.failedCount));
  log(LogLevel::info, logName_ + " session deinit");
}

void Session::observe() {
  observe(AVCaptureSessionRuntimeErrorNotification, &Session::runtimeError);
  observe(AVCaptureSessionDidStartRunningNotification, &Session::didStartRunning);
  observe(AVCaptureSessionDidStopRunningNotification, &Session::didStopRunning);
  if (!root_.platform().systemVersion().isAtLeast(10, 14)) return;
  observe(AVCaptureSessionWasInterruptedNotification, &Session::didBeginInterruption);
  observe(AVCaptureSessionInterruptionEndedNotification, &Session::didEndInterruption);
}

void Session::observe(const char* name, Handler handler) {
  observers_.push_back(root_.platform().notificationCenter().addObserver(
      name, session_.get(), [weak = weak_from_this(), handler](const NSNotification& notification) {
        if (const auto session = weak.lock()) ((*session).*handler)(notification);
      }));
}

void Session::configure() {
  session_->addInput(input_);
  session_->addOutput(output_);
  output_->setSampleBufferDelegate(weak_from_this(), root_.platform().dispatch().makeQueue(kOutputQueue));
}

void Session::start() {
  state_.with([](State& state) {
    state.stopped = state.released = false;
    state.starts += 1;
  });
  queue_->async([self = shared_from_this()] { self->startRunning(); });
}

void Session::startRunning() {
  const auto isUnwanted = [this] {
    // A source that has gone stopped what it knew of.
    return delegate_.expired() || state_.with([](const State& state) { return state.stopped; });
  };
  if (isUnwanted()) return;
  log(LogLevel::info, logName_ + " session starting");
  report([](State&) { return [](SessionDelegate& told) { told.sessionWillStartRunning(); }; });
  if (!delegate_.expired()) session_->startRunning();
}

void Session::stop() {
  report([](State& state) -> Event {
    state.stopped = state.released = true;
    if (!std::exchange(state.started, false)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidStopRunning(nullptr); };
  });
  queueStop();
}

void Session::queueStop() {
  queue_->async([self = shared_from_this()] { self->stopRunning(); });
}

void Session::stopRunning() {
  log(LogLevel::info, logName_ + " session stopping");
  session_->stopRunning();
}

void Session::didStartRunning(const NSNotification& /*notification*/) {
  log(LogLevel::info, logName_ + " session started");
  report([weak = weak_from_this()](State& state) {
    state.started = true;
    state.untoldStarts += 1;
    return [weak](SessionDelegate& told) {
      told.sessionDidStartRunning();
      if (const auto session = weak.lock()) session->state_.with([](State& held) { held.untoldStarts -= 1; });
    };
  });
}

void Session::didStopRunning(const NSNotification& notification) {
  log(LogLevel::info, logName_ + " session stopped");
  report([&](State& state) -> Event {
    closeInterval(state);
    // A stop that was asked for has been told already.
    if (!std::exchange(state.started, false)) return nullptr;
    return [error = errorOf(notification)](SessionDelegate& told) {
      told.sessionDidStopRunning(error ? &*error : nullptr);
    };
  });
}

void Session::runtimeError(const NSNotification& notification) {
  const Dictionary& info = notification.userInfo;
  const std::string text = info.empty() ? "" : Value(info).description();
  log(LogLevel::info, logName_ + " session runtimeError (" + text + ")");
  bool isStarted = false;
  int starts = 0;
  report([&](State& state) -> Event {
    isStarted = state.started;
    starts = state.starts;
    const auto error = errorOf(notification);
    if (isStarted || !error) return nullptr;
    return [error](SessionDelegate& told) { told.sessionDidFailToStartRunning(*error); };
  });
  if (!isStarted) return;
  didStopRunning(notification);
  // A host that has started again meanwhile is not to be stopped.
  const bool isOver = state_.with([&](State& state) {
    if (state.starts == starts) state.stopped = true;
    return state.starts == starts;
  });
  if (isOver) queueStop();
}

void Session::didBeginInterruption(const NSNotification& notification) {
  log(LogLevel::info, logName_ + " session begin interruption");
  report([&](State& state) {
    closeInterval(state);
    return [info = notification.userInfo](SessionDelegate& told) {
      told.sessionDidBeginInterruption(info.empty() ? nullptr : &info);
    };
  });
}

void Session::didEndInterruption(const NSNotification& /*notification*/) {
  log(LogLevel::info, logName_ + " session end interruption");
  report([](State&) { return [](SessionDelegate& told) { told.sessionDidEndInterruption(); }; });
}

void Session::captureOutput(AVCaptureVideoDataOutput& /*output*/, const CMSampleBuffer& sample) {
  const double now = root_.platform().clock().CACurrentMediaTime();
  const CVPixelBufferRef& frame = CMSampleBufferGetImageBuffer(sample);
  const auto told = delegate_.lock();
  std::shared_ptr<CapturableOutputDelegate> addressee;
  state_.with([&](State& state) {
    if (state.startTime == 0) state.startTime = now;
    state.outputCount += 1;
    if (!frame) state.failedCount += 1;
    // A frame must not reach the delegate of a later session, nor come before the start was told.
    if (told && !state.released && state.untoldStarts == 0) addressee = told->delegate();
  });
  if (!frame) return log(LogLevel::error, logName_ + " no image buffer in capture output");
  if (!told) return;
  const EventAddressee scope(*told, addressee);
  told->sessionDidOutput(frame, now);
}

void Session::closeInterval(State& state) const {
  if (state.startTime <= 0) return;
  state.duration += root_.platform().clock().CACurrentMediaTime() - std::exchange(state.startTime, 0);
}

void Session::report(const std::function<Event(State&)>& change) {
  const auto told = delegate_.lock();
  std::shared_ptr<CapturableOutputDelegate> addressee;  // let go after the lock, perhaps as its last holder
  state_.with([&](State& state) {
    // After a stop the source may be another session's.
    const bool isForNobody = state.released;
    Event event = change(state);
    if (!event || !told) return;
    if (!isForNobody) addressee = told->delegate();
    events_.enqueue([weak = delegate_, to = std::weak_ptr(addressee), event = std::move(event)] {
      const auto source = weak.lock();
      if (!source) return;
      const EventAddressee scope(*source, to);
      event(*source);
    });
  });
  if (told) events_.deliver();
}

}  // namespace QelUtilVideo::device
