#include "capture/SessionStatistics.h"

#include "platform/NumberText.h"

namespace QelUtilVideo {
std::string sessionStatistics(std::int64_t count, double duration) {
  if (duration > 0) {
    return "duration=" + oneDecimal(duration) + "sec, captured=" + std::to_string(count) + "(" +
           oneDecimal(static_cast<double>(count) / duration) + "fps)";
  }
  return "duration=0sec, captured=" + std::to_string(count);
}

}  // namespace QelUtilVideo
