#pragma once

#include "capture/windowlist/CompositeCapture.h"

#include <functional>
#include <vector>

namespace QelUtilVideo {

class Root;

namespace windowlist {

/// Captures one window in the way that suits its application. Main thread.
using CaptureFunction = std::function<CaptureResult()>;

/// Chooses by the application that owns the window now; the way stays bound to the window and to this
/// description of it. The root outlives the function.
[[nodiscard]] CaptureFunction chooseCaptureFunction(Root& root, const WindowInfo& info);

/// Whether the window is opaque, on screen, and covers exactly one of the displays.
[[nodiscard]] bool isFullScreenWindow(const WindowInfo& window, const std::vector<CGRect>& screenBounds);

}  // namespace windowlist
}  // namespace QelUtilVideo
