#include "platform/linux/x11/windowserver/WindowSelection.h"

#include <algorithm>
#include <iterator>

namespace QelUtilVideo {

namespace {

using Windows = std::vector<WindowRecord>;

Windows windowsAbove(const WindowList& list, CGWindowID relativeTo, bool isIncluded, bool isWithDesktop) {
  const auto& windows = list.onScreen;
  const auto given = std::find_if(windows.begin(), windows.end(),
                                  [&](const WindowRecord& window) { return window.window == relativeTo; });
  Windows selected(windows.begin(), given);
  if (given != windows.end()) {
    if (isIncluded) selected.push_back(*given);
  } else if (isWithDesktop) {
    selected.push_back(list.desktop);
  }
  return selected;
}

}  // namespace

Windows selectWindows(const WindowList& list, std::uint32_t options, CGWindowID relativeTo) {
  const bool isIncluded = options & kCGWindowListOptionIncludingWindow;
  const bool isWithDesktop = !(options & kCGWindowListExcludeDesktopElements);
  if (options & kCGWindowListOptionOnScreenAboveWindow) {
    return windowsAbove(list, relativeTo, isIncluded, isWithDesktop);
  }
  if (isIncluded) return selectWindows(list, std::span(&relativeTo, 1));
  Windows selected = list.onScreen;
  if (!(options & kCGWindowListOptionOnScreenOnly)) {
    selected.insert(selected.end(), list.offScreen.begin(), list.offScreen.end());
  }
  if (isWithDesktop) selected.push_back(list.desktop);
  return selected;
}

Windows selectWindows(const WindowList& list, std::span<const CGWindowID> numbers) {
  const auto isGiven = [&](const WindowRecord& window) {
    return std::find(numbers.begin(), numbers.end(), window.window) != numbers.end();
  };
  Windows selected;
  for (const auto* windows : {&list.onScreen, &list.offScreen}) {
    std::copy_if(windows->begin(), windows->end(), std::back_inserter(selected), isGiven);
  }
  if (isGiven(list.desktop)) selected.push_back(list.desktop);
  return selected;
}

const WindowRecord* findWindow(const WindowList& list, CGWindowID number) {
  const auto has = [number](const WindowRecord& window) { return window.window == number; };
  for (const auto* windows : {&list.onScreen, &list.offScreen}) {
    const auto found = std::find_if(windows->begin(), windows->end(), has);
    if (found != windows->end()) return &*found;
  }
  return has(list.desktop) ? &list.desktop : nullptr;
}

}  // namespace QelUtilVideo
