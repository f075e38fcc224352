#pragma once

#include "platform/CallSafely.h"
#include "platform/Dispatch.h"
#include "platform/linux/core/WorkerPool.h"

#include <functional>
#include <memory>
#include <string>

namespace QelUtilVideo {

/// A serial queue whose blocks run on a pool's threads, and on the caller's own for `sync`.
class SerialQueue final : public DispatchQueue {
 public:
  SerialQueue(std::string label, std::shared_ptr<WorkerPool> pool, TroubleHandler trouble,
              Dispatch::DeadlockHandler deadlocked);
  ~SerialQueue() override;

  [[nodiscard]] const std::string& label() const override;
  void async(Block block) override;
  void sync(const Block& block) override;

 private:
  class State;
  std::shared_ptr<State> state_;
};

}  // namespace QelUtilVideo
