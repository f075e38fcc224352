#include "capture/windowlist/ScreenTargets.h"

#include "capture/device/DisplayNaming.h"
#include "capture/windowlist/Screen.h"
#include "log/Log.h"
#include "platform/Displays.h"
#include "platform/Platform.h"

#include <algorithm>
#include <string>
#include <utility>

namespace QelUtilVideo::windowlist {
namespace {

using List = ScreenTargets::List;

std::shared_ptr<Screen> find(const List& list, CGDirectDisplayID display) {
  const auto found = std::find_if(list.begin(), list.end(),
                                  [&](const auto& screen) { return screen->displayID() == display; });
  return found == list.end() ? nullptr : *found;
}

/// The entry of the old list, on its new screen object, or a new one; null for a screen that is no display.
std::shared_ptr<Screen> listedScreen(Platform& platform, const List& old,
                                     const std::shared_ptr<NSScreen>& screen) {
  const auto displayID = device::screenDisplayID(*screen);
  if (!displayID) return nullptr;
  auto known = find(old, *displayID);
  if (!known) return Screen::make(platform, screen);
  known->setScreen(screen);
  return known;
}

/// The entries of `list` whose display is not in `others`, each logged.
Array missingFrom(const List& others, const List& list, const char* what) {
  Array missing;
  for (const auto& screen : list) {
    if (find(others, screen->displayID())) continue;
    log(LogLevel::info, screen->logName() + what);
    missing.emplace_back(std::shared_ptr<NSObject>(screen));
  }
  return missing;
}

}  // namespace

Dictionary ScreenTargets::update(Platform& platform) {
  List listed;
  for (const auto& screen : platform.displays().screens()) {
    if (auto entry = listedScreen(platform, list_, screen)) listed.push_back(std::move(entry));
  }
  Array disconnected = missingFrom(listed, list_, " disconnected");
  Array connected = missingFrom(list_, listed, " connected");
  list_ = std::move(listed);

  Dictionary change;
  if (!connected.empty()) change.set("connected", std::move(connected));
  if (!disconnected.empty()) change.set("disconnected", std::move(disconnected));
  return change;
}

}  // namespace QelUtilVideo::windowlist
