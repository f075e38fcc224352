#pragma once

#include "platform/WindowServer.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <cstdint>
#include <span>
#include <vector>

namespace QelUtilVideo {

/// The windows that a list with these options (`CGWindowListOption`) has, front to back.
[[nodiscard]] std::vector<WindowRecord> selectWindows(const WindowList& list, std::uint32_t options,
                                                      CGWindowID relativeTo);

/// Those of the windows that there are, front to back.
[[nodiscard]] std::vector<WindowRecord> selectWindows(const WindowList& list,
                                                      std::span<const CGWindowID> windows);

/// The window of that number; null when there is none.
[[nodiscard]] const WindowRecord* findWindow(const WindowList& list, CGWindowID window);

}  // namespace QelUtilVideo
