#include "capture/SessionStatistics.h"

#include <array>
#include <charconv>

namespace QelUtilVideo {
namespace {

/// One decimal, rounded like "%.1f", with a point whatever the host's locale says.
std::string oneDecimal(double number) {
  std::array<char, 512> text{};  // the largest double has 309 digits before the point
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 1);
  return {text.data(), end.ptr};
}

}  // namespace

std::string sessionStatistics(std::int64_t count, double duration) {
  if (duration > 0) {
    return "duration=" + oneDecimal(duration) + "sec, captured=" + std::to_string(count) + "(" +
           oneDecimal(static_cast<double>(count) / duration) + "fps)";
  }
  return "duration=0sec, captured=" + std::to_string(count);
}

}  // namespace QelUtilVideo
