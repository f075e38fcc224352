#include "platform/linux/core/WorkerPool.h"

#include "platform/ThreadSafety.h"
#include "platform/linux/core/SignalsBlocked.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace QelUtilVideo {
namespace {

using namespace std::chrono_literals;

constexpr auto idleTime = 5s;     ///< how long a thread without a task stays
constexpr auto stallTime = 10ms;  ///< how long waiting tasks see no progress before a thread is added

}  // namespace

/// Shared by the pool and its threads, which outlive it when they are busy.
class WorkerPool::State : public std::enable_shared_from_this<State> {
 public:
  explicit State(TroubleHandler trouble) : trouble_(std::move(trouble)) {}

  void submit(std::function<void()> task) {
    bool refused = false;
    {
      const MutexLock lock(mutex_);
      tasks_.push_back(std::move(task));
      if (idle_ >= tasks_.size()) {
        changed_.notify_one();
      } else if (threads_ < atOnce_) {
        refused = !startThread(&State::work);
      } else if (!std::exchange(watching_, true)) {
        refused = !startThread(&State::watchForStall);
      }
    }
    if (refused && trouble_) trouble_("No thread can be started; queues wait for the ones there are");
  }

  void close() {
    const MutexLock lock(mutex_);
    closed_ = true;
    changed_.notify_all();
    stallOrClosed_.notify_all();
  }

  [[nodiscard]] std::size_t threadCount() const {
    const MutexLock lock(mutex_);
    return threads_;
  }

 private:
  bool startThread(void (State::*loop)()) REQUIRES(mutex_) {
    try {
      const SignalsBlocked signalsBlocked;
      std::thread([self = shared_from_this(), loop] {
        pthread_setname_np(pthread_self(), "qel-worker");
        const MutexLock lock(self->mutex_);
        (self.get()->*loop)();
        self->threads_ -= 1;
      }).detach();
      threads_ += 1;
      return true;
    } catch (const std::system_error&) {
      watching_ = watching_ && loop != &State::watchForStall;
      return false;
    }
  }

  void work() REQUIRES(mutex_) {
    do {
      while (!tasks_.empty()) runOne();
      idle_ += 1;
      const auto end = std::chrono::steady_clock::now() + idleTime;
      while (tasks_.empty() && !closed_ && changed_.wait_until(mutex_, end)) {
      }
      idle_ -= 1;
    } while (!tasks_.empty());
  }

  void watchForStall() REQUIRES(mutex_) {
    std::uint64_t begunBefore = begun_;
    do {
      begunBefore = begun_;
      const auto end = std::chrono::steady_clock::now() + stallTime;
      while (!closed_ && stallOrClosed_.wait_until(mutex_, end)) {
      }
    } while (!tasks_.empty() && begun_ != begunBefore);
    watching_ = false;
    if (tasks_.size() > 1 && startThread(&State::watchForStall)) watching_ = true;
    work();
  }

  void runOne() REQUIRES(mutex_) {
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    begun_ += 1;
    const MutexUnlock unlocked(mutex_);
    task();
    task = nullptr;
  }

  TroubleHandler trouble_;
  const std::size_t atOnce_ = std::max(4U, std::thread::hardware_concurrency());
  mutable Mutex mutex_;
  ConditionVariable changed_;
  ConditionVariable stallOrClosed_;
  std::deque<std::function<void()>> tasks_ GUARDED_BY(mutex_);
  std::size_t threads_ GUARDED_BY(mutex_) = 0;
  std::size_t idle_ GUARDED_BY(mutex_) = 0;
  std::uint64_t begun_ GUARDED_BY(mutex_) = 0;
  bool watching_ GUARDED_BY(mutex_) = false;  ///< a thread watches for a stall
  bool closed_ GUARDED_BY(mutex_) = false;
};

WorkerPool::WorkerPool(TroubleHandler trouble) : state_(std::make_shared<State>(std::move(trouble))) {}
WorkerPool::~WorkerPool() { state_->close(); }

void WorkerPool::submit(std::function<void()> task) { state_->submit(std::move(task)); }
std::size_t WorkerPool::threadCount() const { return state_->threadCount(); }

}  // namespace QelUtilVideo
