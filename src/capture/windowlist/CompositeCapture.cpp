#include "capture/windowlist/CompositeCapture.h"

#include "capture/windowlist/DisplayGeometry.h"
#include "capture/windowlist/OverlayRegistration.h"
#include "capture/windowlist/PixelBufferMaking.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <algorithm>
#include <iterator>

namespace QelUtilVideo::windowlist {

namespace {

/// Points that a captured rectangle has at least, each way.
constexpr double smallestSide = 80;
/// From this layer on, a window belongs to nobody but the overlay's owner: cursors, screen savers and the
/// like.
constexpr std::int32_t layerLimit = 200;

/// The windows before the last one, the target, that may belong to it: from the one directly above it to the
/// front.
std::vector<WindowInfo> candidatesAbove(const std::vector<WindowInfo>& list, const WindowInfo& info,
                                        const std::optional<Overlay>& overlay) {
  std::vector<WindowInfo> above;
  std::copy_if(std::next(list.rbegin()), list.rend(), std::back_inserter(above),
               [&](const WindowInfo& window) {
                 return haveSameOwner(window, info) || isOverlayWindow(overlay, window);
               });
  return above;
}

/// An application's next document, as it were: it and all above it are no part of the target.
bool endsTheScan(const WindowInfo& window) {
  return window.layer().value_or(0) <= 0 && !window.name().empty();
}

bool isTooHigh(const WindowInfo& window, const std::optional<Overlay>& overlay) {
  const auto layer = window.layer();
  return layer && *layer >= layerLimit && !isOverlayWindow(overlay, window);
}

/// What of the window lies on the desktop, in whole points and not too small.
CGRect captureRect(const CGRect& desktop, const CGRect& bounds) {
  const CGRect rect = CGRectIntersection(desktop, bounds);
  const double dx = std::min((rect.size.width - smallestSide) / 2, 0.0);
  const double dy = std::min((rect.size.height - smallestSide) / 2, 0.0);
  return CGRectIntegral(CGRectInset(rect, dx, dy));
}

}  // namespace

CaptureResult compositeCapture(Root& root, const WindowInfo& info, const Fallback& fallback) {
  Platform& platform = root.platform();
  const auto list = windowInfoList(
      platform, kCGWindowListOptionIncludingWindow | kCGWindowListOptionOnScreenAboveWindow, info.windowID);
  if (list.empty()) return fallback(list);
  const WindowInfo& target = list.back();
  if (!haveSameOwner(target, info)) return fallback(list);

  const auto overlay = root.get<OverlayRegistration>().get();
  const auto above = candidatesAbove(list, info, overlay);
  const auto end = std::find_if(above.begin(), above.end(), endsTheScan);
  std::vector<CGWindowID> windows;
  for (auto window = above.begin(); window != end; ++window) {
    if (!isTooHigh(*window, overlay)) windows.push_back(window->windowID);
  }
  windows.push_back(target.windowID);

  const auto geometry = root.get<CurrentDisplayGeometry>().get();
  const CGRect rect = captureRect(geometry->desktopBounds, target.bounds());
  auto image =
      platform.windowServer().CGWindowListCreateImageFromArray(rect, windows, kCGWindowImageBestResolution);
  if (!image) return {};
  auto pixelBuffer = makePixelBuffer(platform, std::move(image), rect);
  if (!pixelBuffer) return {};
  return {target.info, target.windowID, std::move(pixelBuffer)};
}

}  // namespace QelUtilVideo::windowlist
