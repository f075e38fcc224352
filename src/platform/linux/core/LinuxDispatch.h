#pragma once

#include "platform/CallSafely.h"
#include "platform/Dispatch.h"
#include "platform/Synchronised.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/core/WorkerPool.h"

#include <memory>
#include <mutex>

namespace QelUtilVideo {

/// Queues on threads of its own, and the main queue on an event loop. Any thread.
class LinuxDispatch final : public Dispatch {
 public:
  /// `trouble` is also told of deadlocks until a handler is set.
  explicit LinuxDispatch(TroubleHandler trouble);
  ~LinuxDispatch() override;

  [[nodiscard]] EventLoop& eventLoop() { return *loop_; }
  /// Threads that serve queues now.
  [[nodiscard]] std::size_t threadCount() const { return pool_->threadCount(); }

  // Dispatch
  [[nodiscard]] MainLoop& mainLoop() override { return *loop_; }
  [[nodiscard]] std::shared_ptr<DispatchQueue> mainQueue() override { return mainQueue_; }
  [[nodiscard]] std::shared_ptr<DispatchQueue> makeQueue(std::string label) override;
  [[nodiscard]] std::unique_ptr<DispatchTimerSource> makeTimerSource(
      const std::shared_ptr<DispatchQueue>& queue) override;
  [[nodiscard]] std::unique_ptr<DispatchDataAddSource> makeDataAddSource(
      const std::shared_ptr<DispatchQueue>& queue) override;
  void setDeadlockHandler(DeadlockHandler handler) override;

 private:
  /// What queues hold instead of the dispatch.
  struct Deadlocks {
    Synchronised<DeadlockHandler> handler;
    void report(const std::string& label) const;
  };

  TroubleHandler trouble_;
  std::shared_ptr<Deadlocks> deadlocks_;
  std::shared_ptr<WorkerPool> pool_;
  std::shared_ptr<EventLoop> loop_;
  std::shared_ptr<DispatchQueue> mainQueue_;
  std::shared_ptr<TimerClock> timerThread_;
};

}  // namespace QelUtilVideo
