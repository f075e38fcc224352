#include "capture/windowlist/ScreenTargets.h"

#include "capture/device/DisplayNaming.h"
#include "capture/windowlist/Screen.h"
#include "log/Log.h"
#include "platform/Displays.h"
#include "platform/Platform.h"

#include <algorithm>
#include <iterator>
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

/// The entries of `list` whose display is not in `others`.
List entriesNotIn(const List& others, const List& list) {
  List entries;
  std::ranges::copy_if(list, std::back_inserter(entries),
                       [&](const auto& screen) { return !find(others, screen->displayID()); });
  return entries;
}

void logEach(const List& list, const char* what) {
  for (const auto& screen : list) log(LogLevel::info, screen->logName() + what);
}

Array arrayOf(const List& list) {
  Array array;
  for (const auto& screen : list) array.emplace_back(std::shared_ptr<NSObject>(screen));
  return array;
}

}  // namespace

Dictionary ScreenTargets::update(Platform& platform) {
  List listed;
  for (const auto& screen : platform.displays().screens()) {
    if (auto entry = listedScreen(platform, list_, screen)) listed.push_back(std::move(entry));
  }
  const List disconnected = entriesNotIn(listed, list_);
  logEach(disconnected, " disconnected");
  const List connected = entriesNotIn(list_, listed);
  logEach(connected, " connected");
  list_ = std::move(listed);

  Dictionary change;
  if (!connected.empty()) change.set("connected", arrayOf(connected));
  if (!disconnected.empty()) change.set("disconnected", arrayOf(disconnected));
  return change;
}

}  // namespace QelUtilVideo::windowlist
