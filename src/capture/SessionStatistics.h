#pragma once

#include <cstdint>
#include <string>

namespace QelUtilVideo {

/// The text about what a capture session did: how long frames flowed (seconds), how many there were, and
/// the rate. A duration that is not above 0 leaves the rate out. Independent of the locale. Any thread.
[[nodiscard]] std::string sessionStatistics(std::int64_t count, double duration);

}  // namespace QelUtilVideo
