#include "platform/NumberText.h"

#include <array>
#include <charconv>

namespace QelUtilVideo {

std::string oneDecimal(double number) {
  std::array<char, 512> text{};  // the largest double has 309 digits before the point
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, 1);
  return {text.data(), end.ptr};
}

}  // namespace QelUtilVideo
