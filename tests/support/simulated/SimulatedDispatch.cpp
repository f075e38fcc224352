#include "support/simulated/SimulatedDispatch.h"

#include "platform/DataAddSource.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <limits>
#include <utility>

namespace QelUtilVideo {

// ── The clock ───────────────────────────────────────────────────────────────────────────────────────

std::int64_t SimulatedClock::nanoseconds(double seconds) {
  return seconds > 0 ? static_cast<std::int64_t>(std::llround(std::min(seconds, 1e9) * 1e9)) : 0;
}
double SimulatedClock::seconds(std::int64_t nanoseconds) { return static_cast<double>(nanoseconds) / 1e9; }

TimerClock::Token SimulatedClock::start(double delay, double interval, double, std::function<void()> fired) {
  const std::lock_guard lock(mutex_);
  timers_.emplace(++lastToken_, Timer{now_ + nanoseconds(delay), nanoseconds(interval), std::move(fired)});
  return lastToken_;
}

void SimulatedClock::stop(Token token) {
  std::function<void()> released;
  const std::lock_guard lock(mutex_);
  if (const auto found = timers_.find(token); found != timers_.end()) {
    released = std::move(found->second.fired);
    timers_.erase(found);
  }
}

bool SimulatedClock::fireDue() {
  std::vector<std::function<void()>> due;
  {
    const std::lock_guard lock(mutex_);
    for (auto timer = timers_.begin(); timer != timers_.end();) {
      auto& [next, interval, fired] = timer->second;
      const bool isDue = next <= now_;
      if (isDue) due.push_back(fired);
      if (isDue && interval > 0) next += ((now_ - next) / interval + 1) * interval;
      timer = isDue && interval == 0 ? timers_.erase(timer) : std::next(timer);
    }
  }
  for (const auto& fired : due) fired();
  return !due.empty();
}

bool SimulatedClock::advanceToNextTimer(std::int64_t limit) {
  {
    const std::lock_guard lock(mutex_);
    std::int64_t next = std::numeric_limits<std::int64_t>::max();
    for (const auto& [token, timer] : timers_) next = std::min(next, timer.next);
    if (next > limit) return false;
    now_ = std::max(now_.load(), next);
  }
  return fireDue();
}

std::size_t SimulatedClock::timerCount() const {
  const std::lock_guard lock(mutex_);
  return timers_.size();
}

// ── A queue ─────────────────────────────────────────────────────────────────────────────────────────

/// Blocks in their order; whoever runs them holds the queue meanwhile, and others wait.
class SimulatedQueue final : public DispatchQueue {
 public:
  SimulatedQueue(SimulatedDispatch& dispatch, std::string label)
      : dispatch_(dispatch), label_(std::move(label)) {}

  [[nodiscard]] const std::string& label() const override { return label_; }

  void async(Block block) override {
    push(std::move(block));
    if (!isMain() && dispatch_.mode_ == SerialQueues::immediate) runAtOnce();
  }

  void sync(const Block& block) override {
    if (ownedHere() || (isMain() && dispatch_.isMainThread())) {
      dispatch_.deadlocked(label_);
      return block();
    }
    if (isMain()) return runByOwner(block);
    const Turn turn(*this, std::unique_lock(turn_));
    runPending();
    block();
  }

  /// Waits for its turn and runs what is queued; whether there was anything. From one of its own blocks
  /// only the main queue runs, as a nested main loop does.
  bool run() {
    if (ownedHere()) return isMain() && runPending();
    const Turn turn(*this, std::unique_lock(turn_));
    return runPending();
  }

  [[nodiscard]] std::size_t pending() const {
    const std::lock_guard lock(mutex_);
    return blocks_.size();
  }

  void discard() {
    std::deque<Block> dropped;
    const std::lock_guard lock(mutex_);
    std::swap(dropped, blocks_);
  }

 private:
  /// Holds the queue while it lives, when it has it.
  class Turn {
   public:
    Turn(SimulatedQueue& queue, std::unique_lock<std::mutex> lock) : queue_(queue), lock_(std::move(lock)) {
      if (lock_) queue_.owner_ = std::this_thread::get_id();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() {
      if (lock_) queue_.owner_ = std::thread::id();
    }
    explicit operator bool() const { return lock_.owns_lock(); }

   private:
    SimulatedQueue& queue_;
    std::unique_lock<std::mutex> lock_;
  };

  [[nodiscard]] bool isMain() const { return this == dispatch_.main_.get(); }
  [[nodiscard]] bool ownedHere() const { return owner_ == std::this_thread::get_id(); }

  /// When another block runs meanwhile, its thread runs the new one next.
  void runAtOnce() {
    while (!ownedHere() && pending() > 0) {
      const Turn turn(*this, std::unique_lock(turn_, std::try_to_lock));
      if (!turn) return;
      runPending();
    }
  }

  void push(Block block) {
    const std::lock_guard lock(mutex_);
    blocks_.push_back(std::move(block));
  }

  bool runPending() {
    for (bool ran = false;; ran = true) {
      Block block;
      {
        const std::lock_guard lock(mutex_);
        if (blocks_.empty()) return ran;
        block = std::move(blocks_.front());
        blocks_.pop_front();
      }
      callSafely(dispatch_.trouble_, "A block on " + label_, block);
    }
  }

  void runByOwner(const Block& block) {
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;
    std::exception_ptr exception;
    push([&] {
      try {
        block();
      } catch (...) {
        exception = std::current_exception();
      }
      const std::lock_guard lock(mutex);
      done = true;
      ended.notify_one();
    });
    std::unique_lock lock(mutex);
    ended.wait(lock, [&] { return done; });
    if (exception) std::rethrow_exception(exception);
  }

  SimulatedDispatch& dispatch_;
  std::string label_;
  std::mutex turn_;
  std::atomic<std::thread::id> owner_{};
  mutable std::mutex mutex_;
  std::deque<Block> blocks_;
};

// ── The machine's dispatch ──────────────────────────────────────────────────────────────────────────

SimulatedDispatch::SimulatedDispatch(std::shared_ptr<SimulatedClock> clock, TroubleHandler trouble)
    : clock_(std::move(clock)),
      trouble_(std::move(trouble)),
      main_(std::make_shared<SimulatedQueue>(*this, "main")) {}

SimulatedDispatch::~SimulatedDispatch() { discardPending(); }

void SimulatedDispatch::runMain() {
  do {
    clock_->fireDue();
  } while (main_->run());
}

void SimulatedDispatch::runQueues() {
  for (bool ran = true; ran;) {
    ran = false;
    for (const auto& queue : serialQueues()) ran = queue->run() || ran;
  }
}

void SimulatedDispatch::runQueues(const std::string& label) {
  for (const auto& queue : serialQueues()) {
    if (queue->label() == label) queue->run();
  }
}

void SimulatedDispatch::settle() {
  for (bool ran = true; ran;) {
    ran = clock_->fireDue();
    if (mainServed_) ran = main_->run() || ran;
    if (mode_ != SerialQueues::driven) continue;
    for (const auto& queue : serialQueues()) ran = queue->run() || ran;
  }
}

void SimulatedDispatch::advance(double seconds) {
  const std::int64_t target = clock_->now() + SimulatedClock::nanoseconds(seconds);
  settle();
  while (clock_->advanceToNextTimer(target)) settle();
  clock_->jumpTo(std::max(target, clock_->now()));
}

std::size_t SimulatedDispatch::pendingOnMain() const { return main_->pending(); }

std::size_t SimulatedDispatch::pendingOn(const std::string& label) const {
  std::size_t count = 0;
  for (const auto& queue : serialQueues()) count += queue->label() == label ? queue->pending() : 0;
  return count;
}

std::vector<std::string> SimulatedDispatch::queueLabels() const {
  const std::lock_guard lock(mutex_);
  return labels_;
}

std::vector<std::string> SimulatedDispatch::deadlocks() const {
  const std::lock_guard lock(mutex_);
  return deadlocks_;
}

void SimulatedDispatch::discardPending() {
  main_->discard();
  for (const auto& queue : serialQueues()) queue->discard();
}

std::shared_ptr<DispatchQueue> SimulatedDispatch::mainQueue() { return main_; }

std::shared_ptr<DispatchQueue> SimulatedDispatch::makeQueue(std::string label) {
  const std::lock_guard lock(mutex_);
  labels_.push_back(label);
  auto queue = std::make_shared<SimulatedQueue>(*this, std::move(label));
  queues_.push_back(queue);
  return queue;
}

std::unique_ptr<DispatchTimerSource> SimulatedDispatch::makeTimerSource(
    const std::shared_ptr<DispatchQueue>& queue) {
  return makeTimerSourceOn(queue, clock_);
}

std::unique_ptr<DispatchDataAddSource> SimulatedDispatch::makeDataAddSource(
    const std::shared_ptr<DispatchQueue>& queue) {
  return makeDataAddSourceOn(queue);
}

void SimulatedDispatch::setDeadlockHandler(DeadlockHandler handler) {
  const std::lock_guard lock(mutex_);
  deadlockHandler_ = std::move(handler);
}

bool SimulatedDispatch::bindToCurrentThread() {
  mainThread_ = std::this_thread::get_id();
  return true;
}

void SimulatedDispatch::run() {
  if (!isMainThread()) return;
  constexpr auto forEver = std::numeric_limits<std::int64_t>::max();
  do {
    settle();
  } while (stops_ == 0 && clock_->advanceToNextTimer(forEver - 1));
  if (stops_ > 0) stops_ -= 1;
}

void SimulatedDispatch::dispatchPending() {
  if (isMainThread()) runMain();
}

void SimulatedDispatch::async(std::function<void()> block) { main_->async(std::move(block)); }

void SimulatedDispatch::after(double seconds, std::function<void()> block) {
  clock_->start(seconds, 0, 0, [main = std::weak_ptr(main_), block = std::move(block)] {
    if (const auto queue = main.lock()) queue->async(block);
  });
}

void SimulatedDispatch::deadlocked(const std::string& label) {
  DeadlockHandler handler;
  {
    const std::lock_guard lock(mutex_);
    deadlocks_.push_back(label);
    handler = deadlockHandler_;
  }
  if (handler) handler(label);
}

std::vector<std::shared_ptr<SimulatedQueue>> SimulatedDispatch::serialQueues() const {
  const std::lock_guard lock(mutex_);
  return queues_;
}

}  // namespace QelUtilVideo
