#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>

#include <memory>

namespace QelUtilVideo {

class Displays;
class NSScreen;

/// The screen that shows most of a window with this frame (global display coordinates, origin top-left);
/// of equals the first. Null when none shows any of it. Where no screens are listed at all, windows may
/// be shown all the same, as under XWayland: then one of unknown refresh rate that is listed nowhere, the
/// same for all windows. Any thread.
[[nodiscard]] std::shared_ptr<NSScreen> screenShowing(const CGRect& frame, Displays& displays);

}  // namespace QelUtilVideo
