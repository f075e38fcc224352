#pragma once

#include "platform/Diagnostics.h"

#include <vector>

namespace QelUtilVideo {

/// What the X server called `name` (null: the one that DISPLAY names) offers to the library, on a
/// connection of its own. Waits for as long as the server does. Any thread.
[[nodiscard]] std::vector<Finding> examineX11(const char* name = nullptr);

}  // namespace QelUtilVideo
