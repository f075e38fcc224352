#pragma once

#include "platform/Clock.h"

namespace QelUtilVideo {

/// The monotonic clock, which stands still while the machine sleeps.
class LinuxClock final : public Clock {
 public:
  [[nodiscard]] double CACurrentMediaTime() override;
};

}  // namespace QelUtilVideo
