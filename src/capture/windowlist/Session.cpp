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

bool Session::start() {
  bool ended = false;
  const bool begins = state_.with([&](State& state) {
    ended = state.stopped;
    return !ended && !state.timer && !std::exchange(state.starting, true);
  });
  if (!begins) return !ended;
  log(LogLevel::info, logName_ + " session starting");
  report(owner(), [](State& state) -> Event {
    if (!state.starting) return nullptr;  // somebody has stopped it meanwhile
    return [](SessionDelegate& told) { told.sessionWillStartRunning(); };
  });
  runTimer();
  return true;
}

void Session::stop(const NSError* error) {
  const Owner target = owner();
  const std::string line = logName_ + " session stopping";
  const std::optional<NSError> reason = error ? std::optional(*error) : std::nullopt;
  std::unique_ptr<DispatchTimerSource> timer;
  // All at once, so that a start by another thread finds the session either running or ended, and the end
  // is told to the delegate of this moment.
  report(target, [&](State& state) -> Event {
    timer = std::move(state.timer);
    state.starting = false;
    state.stopped = true;
    if (!timer) return nullptr;
    timer->cancel();
    state.paused = false;
    const bool ran = std::exchange(state.started, false);
    return [line, reason, ran](SessionDelegate& told) {
      log(LogLevel::info, line);
      if (ran) {
        told.sessionDidStopRunning(reason ? &*reason : nullptr);
      } else if (reason) {
        told.sessionDidFailToStartRunning(*reason);
      }
    };
  });
  if (timer && !target) log(LogLevel::info, line);
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
  if (state_.with([](const State& state) { return state.stopped; })) {
    log(LogLevel::warning, logName_ + " session already stopped");
    return;
  }
  const Owner target = owner();
  if (!target) {
    log(LogLevel::error, logName_ + " session has no target to capture");
    return;
  }
  const Tick tick{.target = target,
                  .time = platform_.clock().CACurrentMediaTime(),
                  .number = state_.with([](State& state) { return ++state.ticks; })};
  Result<CVPixelBufferRef> captured = target.asked->capture();
  if (!captured.hasValue()) {
    stop(&captured.error());
    return;
  }
  noteStart(tick);
  if (captured.value()) {
    noteFrame(tick, std::move(captured.value()));
  } else {
    noteInterruption(tick);
  }
}

void Session::noteStart(const Tick& tick) {
  report(tick.target, [&](State& state) -> Event {
    // Somebody may have stopped the session while the target was being captured.
    if (!tick.mayChange(state) || std::exchange(state.started, true)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidStartRunning(); };
  });
}

void Session::noteInterruption(const Tick& tick) {
  report(tick.target, [&](State& state) -> Event {
    if (!tick.mayChange(state)) return nullptr;
    if (state.startTime > 0) state.duration += tick.time - std::exchange(state.startTime, 0);
    if (std::exchange(state.paused, true)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidBeginInterruption(nullptr); };
  });
}

void Session::noteFrame(const Tick& tick, CVPixelBufferRef frame) {
  report(tick.target, [&](State& state) -> Event {
    if (!tick.mayChange(state) || !std::exchange(state.paused, false)) return nullptr;
    return [](SessionDelegate& told) { told.sessionDidEndInterruption(); };
  });
  report(tick.target, [&](State& state) -> Event {
    if (!tick.mayChange(state)) return nullptr;
    if (state.startTime == 0) state.startTime = tick.time;
    state.count += 1;
    // An event of its own, behind those that another thread may still be telling.
    return [self = shared_from_this(), frame = std::move(frame), time = tick.time](SessionDelegate&) {
      self->queue_->async([self, frame, time] { self->output(frame, time); });
    };
  });
}

void Session::output(const CVPixelBufferRef& frame, double timestamp) {
  const Owner target = owner();
  if (!target) return;
  // Both at once: a frame must not reach the delegate of a later session.
  std::shared_ptr<CapturableOutputDelegate> delegate;
  const bool flows = state_.with([&](const State& state) {
    delegate = target.told->delegate();
    return state.started;
  });
  if (!flows) return;
  const EventAddressee scope(*target.told, delegate);
  target.told->sessionDidOutput(frame, timestamp);
}

void Session::report(const Owner& target, const std::function<Event(State&)>& change) {
  enqueue(target, change);
  if (target) target.asked->events().deliver();
}

void Session::enqueue(const Owner& target, const std::function<Event(State&)>& change) {
  std::shared_ptr<CapturableOutputDelegate> delegate;  // let go after the lock, perhaps as its last holder
  state_.with([&](State& state) {
    Event event = change(state);
    if (!event || !target) return;
    delegate = target.told->delegate();
    target.asked->events().enqueue(
        [weak = target_, addressee = std::weak_ptr(delegate), event = std::move(event)] {
          const auto told = weak.lock();
          if (!told) return;
          const EventAddressee scope(*told, addressee);
          event(*told);
        });
  });
}

}  // namespace QelUtilVideo::windowlist
