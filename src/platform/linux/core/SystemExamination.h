#pragma once

#include "platform/Diagnostics.h"

#include <vector>

namespace QelUtilVideo {

/// What there is of system log, settings and the library's own files. Any thread.
[[nodiscard]] std::vector<Finding> examineSystem();

}  // namespace QelUtilVideo
