#include "platform/linux/core/TimerThread.h"

#include "platform/ThreadSafety.h"
#include "platform/linux/core/TimerTable.h"
#include "platform/linux/core/WorkerPool.h"

#include <mutex>
#include <optional>
#include <utility>

namespace QelUtilVideo {

/// Shared with the thread, which may outlive the clock.
class TimerThread::State : public std::enable_shared_from_this<State> {
 public:
  explicit State(TroubleHandler trouble) : trouble_(trouble), pool_(std::move(trouble)) {}

  Token start(double delay, double interval, double leeway, std::function<void()> fired) {
    const MutexLock lock(mutex_);
    const Token token =
        timers_.add(std::chrono::steady_clock::now(), delay, interval, leeway, std::move(fired));
    changed_.notify_one();
    if (!std::exchange(running_, true)) pool_.submit([self = shared_from_this()] { self->run(); });
    return token;
  }

  void stop(Token token) {
    TimerTable::Function released;
    const MutexLock lock(mutex_);
    released = timers_.remove(token);
    changed_.notify_one();
  }

  void stopAll() {
    TimerTable released;
    const MutexLock lock(mutex_);
    std::swap(released, timers_);
    changed_.notify_one();
  }

 private:
  void run() {
    const MutexLock lock(mutex_);
    while (const auto wake = timers_.wakeTime()) {
      const auto now = std::chrono::steady_clock::now();
      if (now < *wake) {
        changed_.wait_until(mutex_, *wake);
      } else {
        fireDue(now);
      }
    }
    running_ = false;
  }

  /// Functions are called and let go of without the lock.
  void fireDue(TimerTable::Time now) REQUIRES(mutex_) {
    while (std::optional<TimerTable::Function> fired = timers_.takeDue(now)) {
      const MutexUnlock unlocked(mutex_);
      callSafely(trouble_, "A timer", *fired);
      fired.reset();
    }
  }

  const TroubleHandler trouble_;
  WorkerPool pool_;  ///< its one thread is the timers' own, so that no busy queue delays them
  Mutex mutex_;
  ConditionVariable changed_;
  TimerTable timers_ GUARDED_BY(mutex_);
  bool running_ GUARDED_BY(mutex_) = false;
};

TimerThread::TimerThread(TroubleHandler trouble) : state_(std::make_shared<State>(std::move(trouble))) {}
TimerThread::~TimerThread() { state_->stopAll(); }

TimerClock::Token TimerThread::start(double delay, double interval, double leeway,
                                     std::function<void()> fired) {
  return state_->start(delay, interval, leeway, std::move(fired));
}

void TimerThread::stop(Token token) { state_->stop(token); }

}  // namespace QelUtilVideo
