#pragma once

#include "platform/CallSafely.h"
#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Synchronised.h"
#include "platform/TimerSource.h"

#include <QelUtilVideo/platform/MainLoop.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace QelUtilVideo {

/// The media clock, moved by the test alone. It stands at 100 s in the beginning and counts whole
/// nanoseconds, so that tenths of a second add up exactly.
class SimulatedClock final : public Clock, public TimerClock {
 public:
  [[nodiscard]] double CACurrentMediaTime() override { return static_cast<double>(now_) / 1e9; }
  Token start(double delay, double interval, double leeway, std::function<void()> fired) override;
  void stop(Token token) override;

  /// Moves the clock, firing nothing.
  void jump(double seconds) { now_ += nanoseconds(seconds); }
  void jumpTo(std::int64_t time) { now_ = time; }
  /// Fires what is due now; whether anything was.
  bool fireDue();
  /// Moves to the next timer that is due no later than `limit` and fires it; false: there is none.
  bool advanceToNextTimer(std::int64_t limit);
  [[nodiscard]] std::int64_t now() const { return now_; }
  [[nodiscard]] std::size_t timerCount() const;

  [[nodiscard]] static std::int64_t nanoseconds(double seconds);

 private:
  struct Timer {
    std::int64_t next;
    std::int64_t interval;
    std::function<void()> fired;
  };
  struct Timers {
    Token last = 0;
    std::map<Token, Timer> all;
  };
  std::atomic<std::int64_t> now_{100'000'000'000};
  Synchronised<Timers> timers_;
};

/// What becomes of a block that is queued on a serial queue.
enum class SerialQueues : std::uint8_t {
  driven,  ///< runs when the test drives the machine (`settle`, `advance`); the default
  byHand,  ///< runs only in `runQueues`
};

class SimulatedQueue;

/// Queues that run only when the test says so, on the thread of the test that says so. Real threads may
/// queue and wait as well. The main thread is the one that made the machine. A queue that is asked to
/// wait for itself fails the test.
class SimulatedDispatch final : public Dispatch, private MainLoop {
 public:
  SimulatedDispatch(std::shared_ptr<SimulatedClock> clock, TroubleHandler trouble);
  ~SimulatedDispatch() override { discardPending(); }

  void setSerialQueues(SerialQueues mode) { mode_ = mode; }
  /// An unserved main queue keeps its blocks; `runMain` still runs them.
  void setMainQueueServed(bool served) { mainServed_ = served; }

  /// Runs the main queue's blocks and timers that are due, until there are none.
  void runMain();
  /// Runs the blocks of all serial queues until there are none.
  void runQueues();
  /// Runs everything that is ready, as the two knobs allow, until nothing is.
  void settle();
  /// Moves the clock on, firing each timer at its exact time and settling after each.
  void advance(double seconds);

  [[nodiscard]] std::size_t pendingOnMain() const;
  [[nodiscard]] std::size_t pendingOn(const std::string& label) const;
  /// The labels of all serial queues ever made, in order.
  [[nodiscard]] std::vector<std::string> queueLabels() const;
  /// Forgets all blocks that still wait.
  void discardPending();

  // Dispatch
  [[nodiscard]] MainLoop& mainLoop() override { return *this; }
  [[nodiscard]] std::shared_ptr<DispatchQueue> mainQueue() override;
  [[nodiscard]] std::shared_ptr<DispatchQueue> makeQueue(std::string label) override;
  [[nodiscard]] std::unique_ptr<DispatchTimerSource> makeTimerSource(
      const std::shared_ptr<DispatchQueue>& queue) override;
  [[nodiscard]] std::unique_ptr<DispatchDataAddSource> makeDataAddSource(
      const std::shared_ptr<DispatchQueue>& queue) override;
  void setDeadlockHandler(DeadlockHandler) override {}

 private:
  friend class SimulatedQueue;

  // MainLoop
  bool bindToCurrentThread() override { return false; }
  [[nodiscard]] bool isMainThread() const override { return std::this_thread::get_id() == mainThread_; }
  void run() override { settle(); }
  void stop() override {}
  [[nodiscard]] int fileDescriptor() const override { return -1; }
  void dispatchPending() override { runMain(); }
  void async(std::function<void()> block) override;
  void after(double seconds, std::function<void()> block) override;

  bool runQueuesOnce();

  std::shared_ptr<SimulatedClock> clock_;
  TroubleHandler trouble_;
  std::atomic<SerialQueues> mode_{SerialQueues::driven};
  std::atomic<bool> mainServed_{true};
  const std::thread::id mainThread_ = std::this_thread::get_id();
  std::shared_ptr<SimulatedQueue> main_;
  Synchronised<std::vector<std::shared_ptr<SimulatedQueue>>> queues_;
};

}  // namespace QelUtilVideo
