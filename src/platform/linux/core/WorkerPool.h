#pragma once

#include "platform/CallSafely.h"

#include <functional>
#include <memory>

namespace QelUtilVideo {

/// Threads that run tasks: a few at once, and one more whenever tasks wait and none has been begun for
/// a while, so that tasks which block each other still end, while hundreds of short ones never cost
/// hundreds of threads. Idle threads leave after some seconds. Any thread. Destroying the pool waits
/// for nobody; tasks already handed in still run.
class WorkerPool {
 public:
  explicit WorkerPool(TroubleHandler trouble);
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  ~WorkerPool();

  /// The task must not throw.
  void submit(std::function<void()> task);
  [[nodiscard]] std::size_t threadCount() const;

 private:
  class State;
  std::shared_ptr<State> state_;
};

}  // namespace QelUtilVideo
