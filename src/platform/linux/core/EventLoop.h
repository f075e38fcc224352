#pragma once

#include "platform/CallSafely.h"
#include "platform/ThreadSafety.h"
#include "platform/TimerSource.h"
#include "platform/linux/core/TimerTable.h"
#include "platform/linux/core/UniqueFD.h"

#include <QelUtilVideo/platform/MainLoop.h>

#include <atomic>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <thread>

namespace QelUtilVideo {

/// The main loop: blocks, timers and descriptors, behind one epoll descriptor that any other loop can
/// watch. In one turn it serves descriptors first, then timers, then the blocks that were queued by
/// then; what a block queues waits for the next turn. Where the system grants it no descriptors, `run`
/// serves blocks and timers all the same; nothing can be watched then, and `fileDescriptor` is -1.
class EventLoop final : public MainLoop, public TimerClock {
 public:
  explicit EventLoop(TroubleHandler trouble);
  ~EventLoop() override;

  /// Calls `handler` on the main thread in every turn in which `fd` is readable, hung up or failed,
  /// until `unwatch`; it may be called once without need. A descriptor that stays hung up must be
  /// unwatched, or the loop never rests. The descriptor stays the caller's; one is watched once, and
  /// watching it again replaces the handler. Any thread. False when the system refuses.
  bool watch(int fd, std::function<void()> handler);
  /// No call of the handler begins after this returns, except one on its way on the main thread when
  /// called from another. Before the descriptor is closed. Any thread.
  void unwatch(int fd);

  /// Lets go of all blocks and timers, undone.
  void forgetWork();

  /// The library has been used: from here on the main thread is settled.
  void settleMainThread() const { settled_ = true; }

  // MainLoop
  bool bindToCurrentThread() override;
  [[nodiscard]] bool isMainThread() const override;
  void run() override;
  void stop() override;
  [[nodiscard]] int fileDescriptor() const override;
  void dispatchPending() override;
  void async(std::function<void()> block) override;
  void after(double seconds, std::function<void()> block) override;

  // TimerClock; functions are called on the main thread.
  Token start(double delay, double interval, double leeway, std::function<void()> fired) override;
  void stop(Token token) override;

 private:
  using Handler = std::function<void()>;
  enum class Wait : bool { no, yes };

  /// One turn. Where `Wait::yes`, it waits for work first, and leaves blocks undone after a stop.
  void turn(Wait wait);
  /// What `turn` does where it has no descriptors to wait on. Answers whether timers are due.
  bool waitWithoutDescriptors(Wait wait);
  void serve(int fd);
  void fireTimers();
  std::optional<TimerTable::Function> takeTimer(TimerTable::Time now);
  void runBlocks(Wait wait);
  std::optional<Handler> takeBlock(Wait wait);
  /// Ends the innermost run if it was asked to end.
  bool takeStop();
  // After each change of what they follow.
  void updateWake() REQUIRES(mutex_);
  void armTimer() REQUIRES(mutex_);

  TroubleHandler trouble_;
  UniqueFD epoll_;
  UniqueFD wake_;   ///< readable exactly while there are blocks, or a stop that a run has to notice
  UniqueFD timer_;  ///< readable while a timer is due

  mutable std::atomic<bool> settled_{false};
  std::atomic<std::thread::id> boundThread_{};

  Mutex mutex_;
  ConditionVariable changed_;        ///< says what the descriptors say, for a loop that has none
  int runs_ GUARDED_BY(mutex_) = 0;  ///< calls of `run` under way, one inside the other
  int stops_ GUARDED_BY(mutex_) =
      0;  ///< asked for and not taken, at most one for each run, or one for the next
  bool isWakeSet_ GUARDED_BY(mutex_) = false;
  std::deque<Handler> blocks_ GUARDED_BY(mutex_);
  std::map<int, std::shared_ptr<const Handler>> watched_ GUARDED_BY(mutex_);
  TimerTable timers_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
