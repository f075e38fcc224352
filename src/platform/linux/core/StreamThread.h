#pragma once

#include "platform/linux/core/UniqueFD.h"

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
    Stop();
    /// Sleeps until that time; false as soon as the thread has to end.
    [[nodiscard]] bool sleepUntil(Time time) const;
    /// Readable from when the thread has to end on; to be waited on, nothing else.
    [[nodiscard]] int descriptor() const { return asked_.get(); }

   private:
    friend class StreamThread;
    void ask() const;

    UniqueFD asked_;
  };

  /// Throws `std::system_error` when the system has no thread or descriptor. What `run` uses, it holds.
  explicit StreamThread(std::function<void(const Stop&)> run);
  StreamThread(const StreamThread&) = delete;
  StreamThread& operator=(const StreamThread&) = delete;
  ~StreamThread();

 private:
  std::shared_ptr<Stop> stop_ = std::make_shared<Stop>();
  std::thread thread_;
};

}  // namespace QelUtilVideo
