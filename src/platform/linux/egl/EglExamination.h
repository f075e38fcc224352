#pragma once

#include "platform/Diagnostics.h"

#include <vector>

namespace QelUtilVideo {

/// What draws views here: EGL, the best OpenGL driver, and whether it reaches the windows of an X server.
/// Waits for as long as the driver does. Any thread; what that has current stays so.
[[nodiscard]] std::vector<Finding> examineOpenGL();

}  // namespace QelUtilVideo
