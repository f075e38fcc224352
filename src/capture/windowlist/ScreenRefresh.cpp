#include "capture/windowlist/SharedWindowManager.h"

#include "capture/device/DisplayNaming.h"
#include "capture/windowlist/DisplayGeometry.h"
#include "capture/windowlist/Screen.h"
#include "log/Log.h"
#include "platform/Dispatch.h"
#include "platform/Displays.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <algorithm>
#include <string>
#include <utility>

namespace QelUtilVideo::windowlist {
namespace {

using ScreenList = std::vector<std::shared_ptr<Screen>>;

std::shared_ptr<Screen> find(const ScreenList& list, CGDirectDisplayID display) {
  const auto found = std::find_if(list.begin(), list.end(),
                                  [&](const auto& screen) { return screen->displayID() == display; });
  return found == list.end() ? nullptr : *found;
}

/// The entry of the old list, on its new screen object, or a new one; null for a screen that is no display.
std::shared_ptr<Screen> listedScreen(Platform& platform, const ScreenList& old,
                                     const std::shared_ptr<NSScreen>& screen) {
  const auto displayID = device::screenDisplayID(*screen);
  if (!displayID) return nullptr;
  auto known = find(old, *displayID);
  if (!known) return Screen::make(platform, screen);
  known->setScreen(screen);
  return known;
}

/// The entries of `list` whose display is not in `others`, each logged.
Array missingFrom(const ScreenList& others, const ScreenList& list, const char* what) {
  Array missing;
  for (const auto& screen : list) {
    if (find(others, screen->displayID())) continue;
    log(LogLevel::info, screen->logName() + what);
    missing.emplace_back(std::shared_ptr<NSObject>(screen));
  }
  return missing;
}

}  // namespace

Dictionary SharedWindowManager::refreshScreens() {
  Dictionary change;
  std::vector<CGDirectDisplayID> displays;
  queue_->sync([&] {
    change = updateScreenList();
    for (const auto& screen : screens_) displays.push_back(screen->displayID());
  });
  updateGeometry(displays);
  return change;
}

Dictionary SharedWindowManager::updateScreenList() {
  Platform& platform = root_.platform();
  ScreenList listed;
  for (const auto& screen : platform.displays().screens()) {
    if (auto entry = listedScreen(platform, screens_, screen)) listed.push_back(std::move(entry));
  }
  Array disconnected = missingFrom(listed, screens_, " disconnected");
  Array connected = missingFrom(screens_, listed, " connected");
  screens_ = std::move(listed);

  Dictionary change;
  if (!connected.empty()) change.set("connected", std::move(connected));
  if (!disconnected.empty()) change.set("disconnected", std::move(disconnected));
  return change;
}

void SharedWindowManager::updateGeometry(const std::vector<CGDirectDisplayID>& displays) {
  std::vector<CGRect> bounds;
  for (const CGDirectDisplayID display : displays) {
    bounds.push_back(root_.platform().displays().CGDisplayBounds(display));
  }
  root_.get<CurrentDisplayGeometry>().set(makeDisplayGeometry(std::move(bounds)));
}

}  // namespace QelUtilVideo::windowlist
