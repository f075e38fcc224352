#pragma once

#include "platform/ThreadSafety.h"

#include <chrono>
#include <memory>
#include <set>
#include <string>

namespace QelUtilVideo {

/// Lets one stream of this process after the other have a node: a stopped one may still be closing it when
/// the next one opens it. Any thread.
class NodeTurns : public std::enable_shared_from_this<NodeTurns> {
 public:
  /// Ends with its destruction, after the node was closed.
  class Turn {
   public:
    Turn(std::shared_ptr<NodeTurns> turns, std::string path);
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();

   private:
    friend class NodeTurns;

    const std::shared_ptr<NodeTurns> turns_;
    const std::string path_;
    bool isTaken_ = false;
  };

  /// Waits until nobody else has a turn on that node; null when that takes longer than the patience.
  [[nodiscard]] std::unique_ptr<Turn> take(const std::string& path, std::chrono::milliseconds patience);

 private:
  void end(const std::string& path);

  Mutex mutex_;
  ConditionVariable ended_;
  std::set<std::string> taken_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
