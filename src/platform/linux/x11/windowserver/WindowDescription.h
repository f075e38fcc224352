#pragma once

#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <QelUtilVideo/platform/Dictionary.h>

namespace QelUtilVideo {

/// The window as `WindowServer` describes it.
[[nodiscard]] Dictionary windowDescription(const WindowRecord& window);

}  // namespace QelUtilVideo
