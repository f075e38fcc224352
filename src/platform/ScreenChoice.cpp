#include "platform/ScreenChoice.h"

#include "platform/Displays.h"

#include <QelUtilVideo/platform/NSScreen.h>

#include <algorithm>

namespace QelUtilVideo {

namespace {

double overlap(const CGRect& a, const CGRect& b) {
  const double width =
      std::min(CGRectGetMaxX(a), CGRectGetMaxX(b)) - std::max(CGRectGetMinX(a), CGRectGetMinX(b));
  const double height =
      std::min(CGRectGetMaxY(a), CGRectGetMaxY(b)) - std::max(CGRectGetMinY(a), CGRectGetMinY(b));
  return width > 0 && height > 0 ? width * height : 0;
}

std::shared_ptr<NSScreen> unlistedScreen() {
  static const auto screen = [] {
    NSScreen::Properties properties;
    properties.localizedName = "Unknown display";
    return std::make_shared<NSScreen>(std::move(properties));
  }();
  return screen;
}

}  // namespace

std::shared_ptr<NSScreen> screenShowing(const CGRect& frame, Displays& displays) {
  const auto screens = displays.screens();
  if (screens.empty()) return unlistedScreen();
  std::shared_ptr<NSScreen> best;
  double most = 0;
  for (const auto& screen : screens) {
    const auto* number = screen->deviceDescription().get<std::uint32_t>("NSScreenNumber");
    if (!number) continue;
    const double shown = overlap(frame, displays.CGDisplayBounds(*number));
    if (shown <= most) continue;
    most = shown;
    best = screen;
  }
  return best;
}

}  // namespace QelUtilVideo
