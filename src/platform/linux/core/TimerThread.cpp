#include "platform/linux/core/TimerThread.h"

#include "platform/linux/core/TimerTable.h"
#include "platform/linux/core/WorkerPool.h"

#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

namespace QelUtilVideo {

/// Shared with the thread, which may outlive the clock.
class TimerThread::State : public std::enable_shared_from_this<State> {
 public:
  explicit State(TroubleHandler trouble) : trouble_(trouble), pool_(std::move(trouble)) {}

  Token start(double delay, double interval, double leeway, std::function<void()> fired) {
    const std::lock_guard lock(mutex_);
    const Token token =
        timers_.add(std::chrono::steady_clock::now(), delay, interval, leeway, std::move(fired));
    changed_.notify_one();
    if (!std::exchange(running_, true)) pool_.submit([self = shared_from_this()] { self->run(); });
    return token;
  }

  void stop(Token token) {
    TimerTable::Function released;
    const std::lock_guard lock(mutex_);
    released = timers_.remove(token);
    changed_.notify_one();
  }

  void stopAll() {
    TimerTable released;
    const std::lock_guard lock(mutex_);
    std::swap(released, timers_);
    changed_.notify_one();
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (const auto wake = timers_.wakeTime()) {
      const auto now = std::chrono::steady_clock::now();
      if (now < *wake) {
        changed_.wait_until(lock, *wake);
      } else {
        fireDue(lock, now);
      }
    }
    running_ = false;
  }

  /// Takes and leaves the lock locked; functions are called and let go of without it.
  void fireDue(std::unique_lock<std::mutex>& lock, TimerTable::Time now) {
    while (std::optional<TimerTable::Function> fired = timers_.takeDue(now)) {
      lock.unlock();
      callSafely(trouble_, "A timer", *fired);
      fired.reset();
      lock.lock();
    }
  }

  const TroubleHandler trouble_;
  WorkerPool pool_;  ///< its one thread is the timers' own, so that no busy queue delays them
  std::mutex mutex_;
  std::condition_variable changed_;
  TimerTable timers_;
  bool running_ = false;
};

TimerThread::TimerThread(TroubleHandler trouble) : state_(std::make_shared<State>(std::move(trouble))) {}
TimerThread::~TimerThread() { state_->stopAll(); }

TimerClock::Token TimerThread::start(double delay, double interval, double leeway,
                                     std::function<void()> fired) {
  return state_->start(delay, interval, leeway, std::move(fired));
}

void TimerThread::stop(Token token) { state_->stop(token); }

}  // namespace QelUtilVideo
