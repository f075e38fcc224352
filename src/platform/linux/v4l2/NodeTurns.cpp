#include "platform/linux/v4l2/NodeTurns.h"

#include <utility>

namespace QelUtilVideo {

NodeTurns::Turn::Turn(std::shared_ptr<NodeTurns> turns, std::string path)
    : turns_(std::move(turns)), path_(std::move(path)) {}

NodeTurns::Turn::~Turn() {
  if (isTaken_) turns_->end(path_);
}

std::unique_ptr<NodeTurns::Turn> NodeTurns::take(const std::string& path,
                                                 std::chrono::milliseconds patience) {
  auto turn = std::make_unique<Turn>(shared_from_this(), path);
  const auto end = std::chrono::steady_clock::now() + patience;
  const MutexLock lock(mutex_);
  while (taken_.contains(path)) {
    if (!ended_.wait_until(mutex_, end)) break;
  }
  if (!taken_.insert(path).second) return nullptr;
  turn->isTaken_ = true;
  return turn;
}

void NodeTurns::end(const std::string& path) {
  const MutexLock lock(mutex_);
  taken_.erase(path);
  ended_.notify_all();
}

}  // namespace QelUtilVideo
