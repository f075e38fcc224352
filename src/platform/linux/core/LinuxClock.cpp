#include "platform/linux/core/LinuxClock.h"

#include <algorithm>
#include <ctime>

namespace QelUtilVideo {

double LinuxClock::CACurrentMediaTime() {
  std::timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::max(1e-9, static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9);
}

}  // namespace QelUtilVideo
