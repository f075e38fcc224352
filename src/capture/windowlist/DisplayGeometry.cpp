#include "capture/windowlist/DisplayGeometry.h"

#include <utility>

namespace QelUtilVideo::windowlist {

DisplayGeometry makeDisplayGeometry(std::vector<CGRect> screenBounds) {
  DisplayGeometry geometry;
  for (const CGRect& bounds : screenBounds) {
    geometry.desktopBounds = CGRectUnion(geometry.desktopBounds, bounds);
  }
  if (!screenBounds.empty()) geometry.primaryScreenHeight = screenBounds.front().size.height;
  geometry.screenBounds = std::move(screenBounds);
  return geometry;
}

CurrentDisplayGeometry::CurrentDisplayGeometry(Root& /*root*/)
    : geometry_(std::make_shared<const DisplayGeometry>()) {}

void CurrentDisplayGeometry::set(DisplayGeometry geometry) {
  auto replacement = std::make_shared<const DisplayGeometry>(std::move(geometry));
  geometry_.with([&](std::shared_ptr<const DisplayGeometry>& held) { held.swap(replacement); });
}

}  // namespace QelUtilVideo::windowlist
