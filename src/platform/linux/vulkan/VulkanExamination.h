#pragma once

#include "platform/Diagnostics.h"

#include <vector>

namespace QelUtilVideo {

/// Which graphics processor draws views by default. Missing when there is none, which leaves OpenGL. Waits
/// for as long as the driver does. Any thread.
[[nodiscard]] std::vector<Finding> examineVulkan();

}  // namespace QelUtilVideo
