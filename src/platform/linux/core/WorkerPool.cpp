#include "platform/linux/core/WorkerPool.h"

#include "platform/linux/core/SignalsBlocked.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
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
      const std::lock_guard lock(mutex_);
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
    const std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_all();
    stallOrClosed_.notify_all();
  }

  [[nodiscard]] std::size_t threadCount() const {
    const std::lock_guard lock(mutex_);
    return threads_;
  }

 private:
  using Lock = std::unique_lock<std::mutex>;

  /// Under the lock.
  bool startThread(void (State::*loop)(Lock&)) {
    try {
      const SignalsBlocked signalsBlocked;
      std::thread([self = shared_from_this(), loop] {
        pthread_setname_np(pthread_self(), "qel-worker");
        Lock lock(self->mutex_);
        (self.get()->*loop)(lock);
        self->threads_ -= 1;
      }).detach();
      threads_ += 1;
      return true;
    } catch (const std::system_error&) {
      watching_ = watching_ && loop != &State::watchForStall;
      return false;
    }
  }

  void work(Lock& lock) {
    do {
      while (!tasks_.empty()) runOne(lock);
      idle_ += 1;
      changed_.wait_for(lock, closed_ ? 0s : idleTime, [this] { return !tasks_.empty() || closed_; });
      idle_ -= 1;
    } while (!tasks_.empty());
  }

  void watchForStall(Lock& lock) {
    std::uint64_t begunBefore = begun_;
    do {
      begunBefore = begun_;
      stallOrClosed_.wait_for(lock, stallTime, [this] { return closed_; });
    } while (!tasks_.empty() && begun_ != begunBefore);
    watching_ = false;
    if (tasks_.size() > 1 && startThread(&State::watchForStall)) watching_ = true;
    work(lock);
  }

  void runOne(Lock& lock) {
    std::function<void()> task = std::move(tasks_.front());
    tasks_.pop_front();
    begun_ += 1;
    lock.unlock();
    task();
    task = nullptr;
    lock.lock();
  }

  TroubleHandler trouble_;
  const std::size_t atOnce_ = std::max(4U, std::thread::hardware_concurrency());
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::condition_variable stallOrClosed_;
  std::deque<std::function<void()>> tasks_;
  std::size_t threads_ = 0;
  std::size_t idle_ = 0;
  std::uint64_t begun_ = 0;
  bool watching_ = false;  ///< a thread watches for a stall
  bool closed_ = false;
};

WorkerPool::WorkerPool(TroubleHandler trouble) : state_(std::make_shared<State>(std::move(trouble))) {}
WorkerPool::~WorkerPool() { state_->close(); }

void WorkerPool::submit(std::function<void()> task) { state_->submit(std::move(task)); }
std::size_t WorkerPool::threadCount() const { return state_->threadCount(); }

}  // namespace QelUtilVideo
