#include "capture/windowlist/OverlayRegistration.h"

#include "capture/windowlist/WindowInfo.h"

#include <limits>
#include <utility>

namespace QelUtilVideo::windowlist {

void OverlayRegistration::set(std::int64_t windowLevel, std::int32_t processIdentifier) {
  if (!std::in_range<std::int32_t>(windowLevel)) return clear();
  overlay_.with([&](std::optional<Overlay>& overlay) {
    overlay = Overlay{processIdentifier, static_cast<std::int32_t>(windowLevel)};
  });
}

void OverlayRegistration::clear() {
  overlay_.with([](std::optional<Overlay>& overlay) { overlay.reset(); });
}

bool isOverlayWindow(const std::optional<Overlay>& overlay, const WindowInfo& window) {
  if (!overlay || overlay->processIdentifier != window.ownerProcess()) return false;
  return overlay->windowLevel == window.layer().value_or(std::numeric_limits<std::int32_t>::min());
}

}  // namespace QelUtilVideo::windowlist
