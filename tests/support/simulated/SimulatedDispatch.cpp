#include "support/simulated/SimulatedDispatch.h"

#include "platform/DataAddSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <mutex>
#include <utility>

namespace QelUtilVideo {

// ── The clock ───────────────────────────────────────────────────────────────────────────────────────

std::int64_t SimulatedClock::nanoseconds(double seconds) {
  return seconds > 0 ? static_cast<std::int64_t>(std::llround(std::min(seconds, 1e9) * 1e9)) : 0;
}

TimerClock::Token SimulatedClock::start(double delay, double interval, double, std::function<void()> fired) {
  return timers_.with([&](Timers& timers) {
    timers.all.emplace(++timers.last,
                       Timer{now_ + nanoseconds(delay), nanoseconds(interval), std::move(fired)});
    return timers.last;
  });
}

void SimulatedClock::stop(Token token) {
  // What the timer holds goes outside the lock.
  const auto released = timers_.with([&](Timers& timers) { return timers.all.extract(token); });
}

bool SimulatedClock::fireDue() {
  std::vector<std::function<void()>> due;
  timers_.with([&](Timers& timers) {
    for (auto& [token, timer] : timers.all) {
      if (timer.next > now_) continue;
      due.push_back(timer.fired);
      if (timer.interval > 0) timer.next += ((now_ - timer.next) / timer.interval + 1) * timer.interval;
    }
    std::erase_if(timers.all, [&](const auto& entry) { return entry.second.next <= now_; });
  });
  for (const auto& fired : due) fired();
  return !due.empty();
}

bool SimulatedClock::advanceToNextTimer(std::int64_t limit) {
  std::int64_t next = std::numeric_limits<std::int64_t>::max();
  timers_.with([&](const Timers& timers) {
    for (const auto& [token, timer] : timers.all) next = std::min(next, timer.next);
  });
  if (next > limit) return false;
  now_ = std::max(now_.load(), next);
  return fireDue();
}

std::size_t SimulatedClock::timerCount() const {
  return timers_.with([](const Timers& timers) { return timers.all.size(); });
}

// ── A queue ─────────────────────────────────────────────────────────────────────────────────────────

/// Blocks in their order; whoever runs them holds the queue meanwhile, and others wait.
class SimulatedQueue final : public DispatchQueue {
 public:
  SimulatedQueue(SimulatedDispatch& dispatch, std::string label)
      : dispatch_(dispatch), label_(std::move(label)) {}

  [[nodiscard]] const std::string& label() const override { return label_; }

  void async(Block block) override {
    blocks_.with([&](auto& blocks) { blocks.push_back(std::move(block)); });
  }

  void sync(const Block& block) override {
    if (ownedHere() || (isMain() && dispatch_.isMainThread())) {
      ADD_FAILURE() << "The queue " << label_ << " was asked to wait for itself";
      return block();
    }
    const Turn turn(*this);
    runPending();
    block();
  }

  /// Waits for its turn and runs what is queued; whether there was anything. From one of its own blocks
  /// only the main queue runs, as a nested main loop does.
  bool run() {
    if (ownedHere()) return isMain() && runPending();
    const Turn turn(*this);
    return runPending();
  }

  [[nodiscard]] std::size_t pending() const {
    return blocks_.with([](const auto& blocks) { return blocks.size(); });
  }

  void discard() {
    const auto dropped = blocks_.with([](auto& blocks) { return std::exchange(blocks, {}); });
  }

 private:
  /// Holds the queue while it lives.
  struct Turn {
    explicit Turn(SimulatedQueue& turning) : queue(turning) { queue.owner_ = std::this_thread::get_id(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { queue.owner_ = std::thread::id(); }
    SimulatedQueue& queue;
    std::lock_guard<std::mutex> lock{queue.turn_};
  };

  [[nodiscard]] bool isMain() const { return this == dispatch_.main_.get(); }
  [[nodiscard]] bool ownedHere() const { return owner_ == std::this_thread::get_id(); }

  bool runPending() {
    for (bool ran = false;; ran = true) {
      const auto block = blocks_.with([](auto& blocks) {
        Block first;
        if (!blocks.empty()) {
          first = std::move(blocks.front());
          blocks.pop_front();
        }
        return first;
      });
      if (!block) return ran;
      callSafely(dispatch_.trouble_, "A block on " + label_, block);
    }
  }

  SimulatedDispatch& dispatch_;
  std::string label_;
  std::mutex turn_;
  std::atomic<std::thread::id> owner_{};
  Synchronised<std::deque<Block>> blocks_;
};

// ── The machine's dispatch ──────────────────────────────────────────────────────────────────────────

SimulatedDispatch::SimulatedDispatch(std::shared_ptr<SimulatedClock> clock, TroubleHandler trouble)
    : clock_(std::move(clock)),
      trouble_(std::move(trouble)),
      main_(std::make_shared<SimulatedQueue>(*this, "main")) {}

void SimulatedDispatch::runMain() {
  do {
    clock_->fireDue();
  } while (main_->run());
}

bool SimulatedDispatch::runQueuesOnce() {
  bool ran = false;
  for (const auto& queue : queues_.copy()) ran = queue->run() || ran;
  return ran;
}

void SimulatedDispatch::runQueues() {
  while (runQueuesOnce()) {
  }
}

void SimulatedDispatch::settle() {
  for (bool ran = true; ran;) {
    ran = clock_->fireDue();
    if (mainServed_) ran = main_->run() || ran;
    if (mode_ == SerialQueues::driven) ran = runQueuesOnce() || ran;
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
  for (const auto& queue : queues_.copy()) count += queue->label() == label ? queue->pending() : 0;
  return count;
}

std::vector<std::string> SimulatedDispatch::queueLabels() const {
  std::vector<std::string> labels;
  for (const auto& queue : queues_.copy()) labels.push_back(queue->label());
  return labels;
}

void SimulatedDispatch::discardPending() {
  main_->discard();
  for (const auto& queue : queues_.copy()) queue->discard();
}

std::shared_ptr<DispatchQueue> SimulatedDispatch::mainQueue() { return main_; }

std::shared_ptr<DispatchQueue> SimulatedDispatch::makeQueue(std::string label) {
  auto queue = std::make_shared<SimulatedQueue>(*this, std::move(label));
  queues_.with([&](auto& queues) { queues.push_back(queue); });
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

void SimulatedDispatch::async(std::function<void()> block) { main_->async(std::move(block)); }

void SimulatedDispatch::after(double seconds, std::function<void()> block) {
  clock_->start(seconds, 0, 0, [main = std::weak_ptr(main_), block = std::move(block)] {
    if (const auto queue = main.lock()) queue->async(block);
  });
}

}  // namespace QelUtilVideo
