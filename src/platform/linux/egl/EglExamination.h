#pragma once

#include "platform/Diagnostics.h"

#include <vector>

namespace QelUtilVideo {

// Each waits for as long as driver and server do. Any thread; what that has current stays so.

/// What draws views here: EGL and the best OpenGL driver.
[[nodiscard]] std::vector<Finding> examineOpenGL();
/// Whether views can be drawn in windows of the X server that DISPLAY names; off screen they can be in any
/// case.
[[nodiscard]] std::vector<Finding> examineDrawingInWindows();

}  // namespace QelUtilVideo
