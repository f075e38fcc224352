#include "platform/linux/core/LinuxDispatch.h"

#include "platform/DataAddSource.h"
#include "platform/ThreadSafety.h"
#include "platform/linux/core/SerialQueue.h"
#include "platform/linux/core/TimerThread.h"

#include <exception>
#include <mutex>
#include <utility>

namespace QelUtilVideo {
namespace {

/// How a block ended that another thread waits for.
class Outcome {
 public:
  void set(std::exception_ptr exception) {
    const MutexLock lock(mutex_);
    exception_ = std::move(exception);
    isSet_ = true;
    changed_.notify_one();
  }
  /// What the block threw; null: nothing.
  std::exception_ptr wait() {
    const MutexLock lock(mutex_);
    while (!isSet_) changed_.wait(mutex_);
    return exception_;
  }

 private:
  Mutex mutex_;
  ConditionVariable changed_;
  bool isSet_ GUARDED_BY(mutex_) = false;
  std::exception_ptr exception_ GUARDED_BY(mutex_);
};

/// The event loop's blocks, seen as a queue.
class MainQueue final : public DispatchQueue {
 public:
  MainQueue(std::shared_ptr<EventLoop> loop, Dispatch::DeadlockHandler deadlocked)
      : loop_(std::move(loop)), deadlocked_(std::move(deadlocked)) {}

  [[nodiscard]] const std::string& label() const override { return label_; }
  void async(Block block) override { loop_->async(std::move(block)); }

  void sync(const Block& block) override {
    if (loop_->isMainThread()) {
      deadlocked_(label_);
      return block();
    }
    Outcome outcome;
    loop_->async([&] {
      std::exception_ptr exception;
      try {
        block();
      } catch (...) {
        exception = std::current_exception();
      }
      outcome.set(std::move(exception));
    });
    if (const std::exception_ptr exception = outcome.wait()) std::rethrow_exception(exception);
  }

 private:
  const std::string label_ = "main";
  const std::shared_ptr<EventLoop> loop_;
  const Dispatch::DeadlockHandler deadlocked_;
};

}  // namespace

LinuxDispatch::LinuxDispatch(TroubleHandler trouble)
    : trouble_(std::move(trouble)),
      deadlocks_(std::make_shared<Deadlocks>()),
      pool_(std::make_shared<WorkerPool>(trouble_)),
      loop_(std::make_shared<EventLoop>(trouble_)),
      mainQueue_(std::make_shared<MainQueue>(
          loop_, [deadlocks = deadlocks_](const std::string& label) { deadlocks->report(label); })),
      timerThread_(std::make_shared<TimerThread>(trouble_)) {
  setDeadlockHandler([trouble = trouble_](const std::string& label) {
    if (trouble) trouble("The queue " + label + " was asked to wait for itself");
  });
}

LinuxDispatch::~LinuxDispatch() {
  // Blocks may hold their queue, and it the loop that holds them.
  loop_->forgetWork();
}

std::shared_ptr<DispatchQueue> LinuxDispatch::makeQueue(std::string label) {
  loop_->settleMainThread();
  return std::make_shared<SerialQueue>(
      std::move(label), pool_, trouble_,
      [deadlocks = deadlocks_](const std::string& name) { deadlocks->report(name); });
}

std::unique_ptr<DispatchTimerSource> LinuxDispatch::makeTimerSource(
    const std::shared_ptr<DispatchQueue>& queue) {
  return makeTimerSourceOn(queue, queue == mainQueue_ ? loop_ : timerThread_);
}

std::unique_ptr<DispatchDataAddSource> LinuxDispatch::makeDataAddSource(
    const std::shared_ptr<DispatchQueue>& queue) {
  return makeDataAddSourceOn(queue);
}

void LinuxDispatch::setDeadlockHandler(DeadlockHandler handler) {
  deadlocks_->handler.with([&](DeadlockHandler& current) { std::swap(current, handler); });
}

void LinuxDispatch::Deadlocks::report(const std::string& label) const {
  if (const DeadlockHandler current = handler.copy()) current(label);
}

}  // namespace QelUtilVideo
