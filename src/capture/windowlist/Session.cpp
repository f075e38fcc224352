#include "capture/windowlist/Session.h"

#include "capture/SessionDelegate.h"
#include "capture/SessionStatistics.h"
#include "capture/windowlist/CaptureSource.h"
#include "log/Log.h"
#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Platform.h"

#include <optional>
#include <utility>

namespace QelUtilVideo::windowlist {
namespace {

constexpr double kPeriod = 0.1;  // seconds
constexpr double kLeeway = 0;    // seconds

std::shared_ptr<SessionDelegate> requireDelegate(const std::shared_ptr<CaptureSource>& target) {
  auto delegate = std::dynamic_pointer_cast<SessionDelegate>(target);
  if (!delegate) fatal("invalid target");
  return delegate;
}

}  // namespace

std::shared_ptr<Session> Session::make(Platform& platform, const std::shared_ptr<CaptureSource>& target,
                                       std::string logName) {
  return std::make_shared<Session>(Key{}, platform, target, std::move(logName));
}

Session::Session(Key, Platform& platform, const std::shared_ptr<CaptureSource>& target, std::string logName)
    : platform_(platform),
      logName_(std::move(logName)),
      queue_(platform.dispatch().makeQueue("QelUtilVideo.CapturableWindow.OutputQueue")),
      target_(requireDelegate(target)),
      source_(target) {
  log(LogLevel::info, logName_ + " session init");
}

Session::~Session() {
  State state = state_.with([](State& held) { return std::move(held); });
  if (state.startTime > 0) state.duration += platform_.clock().CACurrentMediaTime() - state.startTime;
  log(LogLevel::info, logName_ + " sample info: " + sessionStatistics(state.count, state.duration));
  log(LogLevel::info, logName_ + " session deinit");
}

void Session::start() {
  const bool begins = state_.with([](State& state) {
    if (state.timer || state.starting || state.stopped) return false;
    state.starting = true;
    return true;
  });
  if (!begins) return;
  log(LogLevel::info, logName_ + " session starting");
  report(owner(),
         [](State&) { return Event([](SessionDelegate& told) { told.sessionWillStartRunning(); }); });
  runTimer();
}

void Session::stop(const NSError* error) {
  const bool begins = state_.with([](State& state) {
    state.starting = false;
    return state.timer && !std::exchange(state.stopping, true);
  });
  if (!begins) return;
  log(LogLevel::info, logName_ + " session stopping");

  std::unique_ptr<DispatchTimerSource> timer;
  const std::optional<NSError> reason = error ? std::optional(*error) : std::nullopt;
  report(owner(), [&](State& state) -> Event {
    timer = std::move(state.timer);
    if (timer) timer->cancel();
    state.stopped = true;
    if (std::exchange(state.started, false)) {
      state.paused = false;
      return [reason](SessionDelegate& told) { told.sessionDidStopRunning(reason ? &*reason : nullptr); };
    }
    if (!reason) return nullptr;
    return [reason](SessionDelegate& told) { told.sessionDidFailToStartRunning(*reason); };
  });
}

void Session::tearDown() {
  const auto timer = state_.with([](State& state) {
    state.starting = false;
    state.started = false;
    state.stopped = true;
    return std::move(state.timer);
  });
  if (timer) timer->cancel();
}

bool Session::hasEnded() const {
  return state_.with([](const State& state) { return state.stopped; });
}

void Session::runTimer() {
  auto timer = platform_.dispatch().makeTimerSource(platform_.dispatch().mainQueue());
  timer->setEventHandler([weak = weak_from_this()] {
    if (const auto session = weak.lock()) session->tick();
  });
  timer->schedule(kPeriod, kLeeway);
  state_.with([&](State& state) {
    // The host may have stopped the capture while it was told of the start.
    if (!std::exchange(state.starting, false)) return;
    state.timer = std::move(timer);
    state.timer->resume();
  });
}

void Session::tick() {
  if (hasEnded()) {
    log(LogLevel::warning, logName_ + " session already stopped");
    return;
  }
  const Owner target = owner();
  if (!target) {
    log(LogLevel::error, logName_ + " session has no target to capture");
    return;
  }
  const double now = platform_.clock().CACurrentMediaTime();
  Result<CVPixelBufferRef> captured = target.asked->capture();
  if (!captured.hasValue()) {
    stop(&captured.error());
    return;
  }
  noteStart(target);
  if (captured.value()) {
    noteFrame(target, std::move(captured.value()), now);
  } else {
    noteInterruption(target, now);
  }
}

void Session::noteStart(const Owner& target) {
  report(target, [](State& state) -> Event {
    // Somebody may have stopped the session while the target was being captured.
    if (state.stopped || std::exchange(state.started, true)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidStartRunning(); };
  });
}

void Session::noteInterruption(const Owner& target, double now) {
  report(target, [now](State& state) -> Event {
    if (state.stopped) return nullptr;
    if (state.startTime > 0) state.duration += now - std::exchange(state.startTime, 0);
    if (std::exchange(state.paused, true)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidBeginInterruption(nullptr); };
  });
}

void Session::noteFrame(const Owner& target, CVPixelBufferRef frame, double now) {
  report(target, [](State& state) -> Event {
    if (state.stopped || !std::exchange(state.paused, false)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidEndInterruption(); };
  });
  const bool goesOut = state_.with([now](State& state) {
    if (state.stopped) return false;
    if (state.startTime == 0) state.startTime = now;
    state.count += 1;
    return true;
  });
  if (!goesOut) return;
  queue_->async([self = shared_from_this(), frame = std::move(frame), now] { self->output(frame, now); });
}

void Session::output(const CVPixelBufferRef& frame, double timestamp) {
  if (!state_.with([](const State& state) { return state.started; })) return;
  if (const auto target = target_.lock()) target->sessionDidOutput(frame, timestamp);
}

void Session::report(const Owner& target, const std::function<Event(State&)>& change) {
  const std::weak_ptr<CapturableOutputDelegate> addressee = target ? target.told->delegate() : nullptr;
  state_.with([&](State& state) {
    Event event = change(state);
    if (!event || !target) return;
    target.asked->events().enqueue([weak = target_, addressee, event = std::move(event)] {
      const auto told = weak.lock();
      if (!told) return;
      const EventAddressee scope(*told, addressee);
      event(*told);
    });
  });
  if (target) target.asked->events().deliver();
}

}  // namespace QelUtilVideo::windowlist
