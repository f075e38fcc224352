#include "platform/TimerSource.h"

#include "platform/Synchronised.h"

#include <cmath>
#include <optional>
#include <utility>

namespace QelUtilVideo {
namespace {

using Handler = std::function<void()>;

/// What the source, the clock and a firing on its way through the queue share.
class Firing : public std::enable_shared_from_this<Firing> {
 public:
  explicit Firing(std::weak_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

  void setHandler(Handler handler) {
    auto shared = std::make_shared<const Handler>(std::move(handler));
    state_.with([&](State& state) {
      if (!state.cancelled) std::swap(state.handler, shared);
    });
  }
  void cancel() {
    std::shared_ptr<const Handler> released;
    state_.with([&](State& state) {
      state.cancelled = true;
      if (!state.waiting) std::swap(state.handler, released);
    });
  }
  void fire() {
    const auto queue = queue_.lock();
    if (!queue) return;
    const bool first =
        state_.with([](State& state) { return !state.cancelled && !std::exchange(state.waiting, true); });
    if (first) queue->async([self = shared_from_this()] { self->run(); });
  }

 private:
  struct State {
    bool cancelled = false;
    bool waiting = false;                    ///< a firing waits for its turn on the queue
    std::shared_ptr<const Handler> handler;  ///< outlives `cancel` for as long as a firing waits
  };

  void run() {
    std::shared_ptr<const Handler> handler;
    state_.with([&](State& state) {
      state.waiting = false;
      handler = state.cancelled ? std::move(state.handler) : state.handler;
    });
    if (handler && *handler) (*handler)();
  }

  std::weak_ptr<DispatchQueue> queue_;
  Synchronised<State> state_;
};

class TimerSource final : public DispatchTimerSource {
 public:
  TimerSource(std::shared_ptr<DispatchQueue> queue, std::shared_ptr<TimerClock> clock)
      : queue_(std::move(queue)), clock_(std::move(clock)), firing_(std::make_shared<Firing>(queue_)) {}
  ~TimerSource() override { cancel(); }

  void setEventHandler(Handler handler) override { firing_->setHandler(std::move(handler)); }

  void schedule(double interval, double leeway) override {
    schedule_.with([&](Schedule& schedule) {
      schedule.interval = std::isfinite(interval) && interval > 0 ? interval : 0;
      schedule.leeway = std::isfinite(leeway) && leeway > 0 ? leeway : 0;
      schedule.set = true;
      startOrStop(schedule);
    });
  }
  void resume() override {
    schedule_.with([&](Schedule& schedule) {
      if (std::exchange(schedule.resumed, true)) return;
      startOrStop(schedule);
    });
  }
  void cancel() override {
    firing_->cancel();
    schedule_.with([&](Schedule& schedule) {
      schedule.cancelled = true;
      startOrStop(schedule);
    });
  }

 private:
  struct Schedule {
    double interval = 0;
    double leeway = 0;
    bool set = false;
    bool resumed = false;
    bool cancelled = false;
    std::optional<TimerClock::Token> token;
  };

  void startOrStop(Schedule& schedule) {
    if (schedule.token) clock_->stop(*std::exchange(schedule.token, std::nullopt));
    if (schedule.cancelled || !schedule.set || !schedule.resumed) return;
    schedule.token =
        clock_->start(0, schedule.interval, schedule.leeway, [firing = firing_] { firing->fire(); });
  }

  std::shared_ptr<DispatchQueue> queue_;
  std::shared_ptr<TimerClock> clock_;
  std::shared_ptr<Firing> firing_;
  Synchronised<Schedule> schedule_;
};

}  // namespace

std::unique_ptr<DispatchTimerSource> makeTimerSourceOn(const std::shared_ptr<DispatchQueue>& queue,
                                                       const std::shared_ptr<TimerClock>& clock) {
  return std::make_unique<TimerSource>(queue, clock);
}

}  // namespace QelUtilVideo
