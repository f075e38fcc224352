#include "capture/windowlist/CaptureStrategies.h"

#include "capture/windowlist/DisplayGeometry.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string>
#include <utility>

namespace QelUtilVideo::windowlist {

namespace {

constexpr const char* firstPresentationApplication = "com.apple.iWork.Keynote";
constexpr const char* secondPresentationApplication = "com.microsoft.Powerpoint";

/// The window is gone.
CaptureResult nothing() { return {}; }

/// The window is there, if it is, but gives no frame.
CaptureResult describeOnly(const std::optional<WindowInfo>& window) {
  if (!window) return nothing();
  return {window->info, window->windowID, nullptr};
}

/// The application's own full-screen windows at this layer or above it, in the list's order.
std::vector<WindowInfo> presentations(Root& root, const std::vector<WindowInfo>& list, const WindowInfo& info,
                                      std::int32_t lowestLayer) {
  const auto geometry = root.get<CurrentDisplayGeometry>().get();
  std::vector<WindowInfo> found;
  std::copy_if(list.begin(), list.end(), std::back_inserter(found), [&](const WindowInfo& window) {
    const auto layer = window.layer();
    return haveSameOwner(window, info) && layer && *layer >= lowestLayer &&
           isFullScreenWindow(window, geometry->screenBounds);
  });
  return found;
}

/// A frame of the first of the presentations, described as the list has it; no frame where there is none.
CaptureResult capturePresentation(Root& root, const std::vector<WindowInfo>& candidates) {
  if (candidates.empty()) return nothing();
  const WindowInfo& presentation = candidates.front();
  auto captured = compositeCapture(root, presentation, [](const auto&) { return nothing(); });
  if (!captured.isFrame()) return nothing();
  return {presentation.info, presentation.windowID, std::move(captured.pixelBuffer)};
}

CaptureResult captureByDefault(Root& root, const WindowInfo& info) {
  return compositeCapture(
      root, info, [&](const auto&) { return describeOnly(describeWindow(root.platform(), info.windowID)); });
}

/// Looks for a presentation among all windows before it tries the window itself.
CaptureResult capturePresentationFirst(Root& root, const WindowInfo& info) {
  const auto fresh = describeWindow(root.platform(), info.windowID);
  if (!fresh) return nothing();
  const auto visible =
      windowInfoList(root.platform(), kCGWindowListOptionOnScreenOnly | kCGWindowListExcludeDesktopElements,
                     kCGNullWindowID);
  auto captured = capturePresentation(root, presentations(root, visible, info, 1));
  if (captured.isFrame()) return captured;
  return compositeCapture(root, info, [&](const auto&) { return describeOnly(fresh); });
}

bool isHigher(const WindowInfo& a, const WindowInfo& b) {
  constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
  const auto aLayer = a.layer().value_or(lowest), bLayer = b.layer().value_or(lowest);
  return aLayer != bLayer ? aLayer > bLayer : a.windowID < b.windowID;
}

/// Looks for a presentation among the windows above it only where the window itself cannot be captured.
CaptureResult captureWindowFirst(Root& root, const WindowInfo& info) {
  return compositeCapture(root, info, [&](const std::vector<WindowInfo>& list) {
    const auto fresh = describeWindow(root.platform(), info.windowID);
    if (!fresh) return nothing();
    auto candidates = presentations(root, list, info, 0);
    std::sort(candidates.begin(), candidates.end(), isHigher);
    auto captured = capturePresentation(root, candidates);
    return captured.isFrame() ? captured : describeOnly(fresh);
  });
}

}  // namespace

bool isFullScreenWindow(const WindowInfo& window, const std::vector<CGRect>& screenBounds) {
  if (window.alpha() != 1.0 || !window.isOnScreen()) return false;
  const CGRect bounds = window.bounds();
  return std::any_of(screenBounds.begin(), screenBounds.end(),
                     [&](const CGRect& screen) { return CGRectEqualToRect(screen, bounds); });
}

CaptureFunction chooseCaptureFunction(Root& root, const WindowInfo& info) {
  const auto application =
      root.platform().windowServer().runningApplicationWithProcessIdentifier(info.ownerProcess());
  const auto identifier = application ? application->bundleIdentifier : std::nullopt;
  const auto strategy = identifier == firstPresentationApplication    ? capturePresentationFirst
                        : identifier == secondPresentationApplication ? captureWindowFirst
                                                                      : captureByDefault;
  return [&root, info, strategy] { return strategy(root, info); };
}

}  // namespace QelUtilVideo::windowlist
