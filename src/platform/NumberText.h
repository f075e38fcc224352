#pragma once

#include <string>

namespace QelUtilVideo {

/// One decimal, rounded like "%.1f", with a point whatever the host's locale says.
[[nodiscard]] std::string oneDecimal(double number);

}  // namespace QelUtilVideo
