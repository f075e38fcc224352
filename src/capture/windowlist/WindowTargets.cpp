#include "capture/windowlist/WindowTargets.h"

#include "capture/windowlist/UsableImage.h"
#include "capture/windowlist/Window.h"
#include "capture/windowlist/WindowImage.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <algorithm>
#include <utility>

namespace QelUtilVideo::windowlist {
namespace {

/// Points that a window has at least, each way.
constexpr double smallestSide = 128;

/// Whether a person might want to share the window: ordinary, opaque, not tiny, and with an image.
bool isCapturable(Platform& platform, const WindowInfo& window) {
  if (window.layer() != 0) return false;
  if (window.alpha() != 1.0) return false;
  const CGSize size = window.bounds().size;
  if (!(size.width >= smallestSide && size.height >= smallestSide)) return false;  // not for NaN either
  const auto image = windowImage(platform, window.windowID);
  return image && isUsableImage(*image);
}

/// The target that was listed for this window, brought up to date, or a new one.
std::shared_ptr<Window> listedWindow(Root& root, const WindowTargets::List& old, WindowInfo window) {
  const auto known = std::find_if(old.begin(), old.end(), [&](const auto& target) {
    return target->windowID() == window.windowID && haveSameOwner(target->info(), window);
  });
  if (known == old.end()) return std::make_shared<Window>(root, std::move(window));
  (*known)->update(window);
  return *known;
}

}  // namespace

void WindowTargets::update(Root& root) {
  List listed;
  for (WindowInfo& window :
       windowInfoList(root.platform(), kCGWindowListExcludeDesktopElements, kCGNullWindowID)) {
    if (!isCapturable(root.platform(), window)) continue;
    listed.push_back(listedWindow(root, list_, std::move(window)));
  }
  list_ = std::move(listed);
}

}  // namespace QelUtilVideo::windowlist
