#pragma once

#include "platform/Root.h"

#include <cstdint>
#include <memory>

namespace QelUtilVideo {

class DispatchQueue;

/// Counts the log IDs of a process. Any thread.
class LogIDs {
 public:
  explicit LogIDs(Root& root);
  ~LogIDs();

  [[nodiscard]] std::int64_t next();

 private:
  std::shared_ptr<DispatchQueue> queue_;
  std::int64_t counter_ = 0;  ///< touched on the queue only
};

}  // namespace QelUtilVideo
