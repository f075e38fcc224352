#pragma once

#include "platform/ThreadSafety.h"

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

namespace QelUtilVideo {

/// A thread that runs until its owner goes. The owner may go on the thread itself, which then ends by itself.
class StreamThread {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// How the thread learns that it has to end; outlives the owner.
  class Stop {
   public:
    /// Sleeps until that time; false as soon as the thread has to end.
    [[nodiscard]] bool sleepUntil(Time time);
    [[nodiscard]] bool isAsked();

   private:
    friend class StreamThread;
    void ask();

    Mutex mutex_;
    ConditionVariable changed_;
    bool isAsked_ GUARDED_BY(mutex_) = false;
  };

  /// Throws `std::system_error` when the system has no thread. What `run` uses, it holds.
  explicit StreamThread(std::function<void(Stop&)> run);
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;
  ~StreamThread();

 private:
  std::shared_ptr<Stop> stop_ = std::make_shared<Stop>();
  std::thread thread_;
};

}  // namespace QelUtilVideo
