#include "platform/linux/x11/windowserver/X11WindowServer.h"

#include "platform/linux/x11/windowserver/Applications.h"
#include "platform/linux/x11/windowserver/ImageOnDemand.h"
#include "platform/linux/x11/windowserver/WindowDescription.h"
#include "platform/linux/x11/windowserver/WindowSelection.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <iterator>
#include <utility>

namespace QelUtilVideo {

namespace {

std::vector<Dictionary> descriptionsOf(const std::vector<WindowRecord>& windows) {
  std::vector<Dictionary> descriptions;
  descriptions.reserve(windows.size());
  std::transform(windows.begin(), windows.end(), std::back_inserter(descriptions), windowDescription);
  return descriptions;
}

Opacity opacityOf(std::uint32_t imageOptions) {
  return imageOptions & kCGWindowImageShouldBeOpaque ? Opacity::whole : Opacity::asItIs;
}

/// The whole pixels that the rectangle touches; absent when they are none that a picture can have.
std::optional<PixelRect> pixelsOf(const CGRect& rect) {
  constexpr double kFarthest = 1e6;
  if (rect.size.width == 0 || rect.size.height == 0) return std::nullopt;
  const double left = std::floor(CGRectGetMinX(rect)), right = std::ceil(CGRectGetMaxX(rect));
  const double top = std::floor(CGRectGetMinY(rect)), bottom = std::ceil(CGRectGetMaxY(rect));
  for (const double edge : {left, right, top, bottom}) {
    if (!(std::abs(edge) <= kFarthest)) return std::nullopt;  // not for NaN either
  }
  const PixelRect pixels{static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
                         static_cast<int>(bottom - top)};
  return WindowPixels::isPossible(pixels) ? std::optional(pixels) : std::nullopt;
}

/// The windows of a list, from the back to the front; of the desktop there is no picture.
WindowPixels::Selection backToFront(std::function<std::vector<WindowRecord>(const WindowList&)> select) {
  return [select = std::move(select)](const WindowList& list) {
    auto windows = select(list);
    std::erase_if(windows, [&](const WindowRecord& window) { return window.window == list.desktop.window; });
    std::reverse(windows.begin(), windows.end());
    return windows;
  };
}

}  // namespace

X11WindowServer::X11WindowServer(std::shared_ptr<X11Connection> connection, EventLoop& loop)
    : connection_(std::move(connection)) {
  if (!connection_) return;
  table_ = WindowTable::make(connection_, loop);
  pixels_ = std::make_shared<WindowPixels>(connection_, table_);
  table_->setSleepHandler([weak = std::weak_ptr(pixels_)] {
    if (const auto pixels = weak.lock()) pixels->release();
  });
}

X11WindowServer::~X11WindowServer() = default;

std::optional<std::vector<Dictionary>> X11WindowServer::CGWindowListCopyWindowInfo(
    std::uint32_t options, CGWindowID relativeTo) try {
  const auto list = table_ ? table_->current() : nullptr;
  if (!list) return std::nullopt;
  return descriptionsOf(selectWindows(*list, options, relativeTo));
} catch (const std::exception&) {  // Without memory there is no answer, here as below.
  return std::nullopt;
}

std::vector<Dictionary> X11WindowServer::CGWindowListCreateDescriptionFromArray(
    std::span<const CGWindowID> windows) try {
  std::vector<Dictionary> descriptions;
  const auto list = table_ ? table_->current() : nullptr;
  if (!list) return descriptions;
  for (const CGWindowID number : windows) {
    if (const auto* window = findWindow(*list, number)) descriptions.push_back(windowDescription(*window));
  }
  return descriptions;
} catch (const std::exception&) {
  return {};
}

std::shared_ptr<CGImage> X11WindowServer::CGWindowListCreateImage(const CGRect& rect, std::uint32_t options,
                                                                  CGWindowID window,
                                                                  std::uint32_t imageOptions) try {
  const auto list = table_ ? table_->current() : nullptr;
  if (!list) return nullptr;
  auto selection = backToFront(
      [options, window](const WindowList& windows) { return selectWindows(windows, options, window); });
  const auto windows = selection(*list);
  std::optional<PixelRect> area;
  if (!CGRectIsNull(rect)) {
    area = pixelsOf(rect);
    if (!area) return nullptr;
  }
  const PixelRect size = area.value_or(WindowPixels::boundsOf(windows));
  if (!WindowPixels::isPossible(size) || !pixels_->probe(list, windows)) return nullptr;
  return makeImageOnDemand(pixels_, size, pixels_->formatOf(windows.front()),
                           {std::move(selection), area, opacityOf(imageOptions)});
} catch (const std::exception&) {
  return nullptr;
}

std::shared_ptr<CGImage> X11WindowServer::CGWindowListCreateImageFromArray(
    const CGRect& rect, std::span<const CGWindowID> windows, std::uint32_t imageOptions) try {
  if (!pixels_) return nullptr;
  std::optional<PixelRect> area;
  if (!CGRectIsNull(rect)) {
    area = pixelsOf(rect);
    if (!area) return nullptr;
  }
  return pixels_->fetch(
      backToFront([windows](const WindowList& list) { return selectWindows(list, windows); }), area,
      opacityOf(imageOptions));
} catch (const std::exception&) {
  return nullptr;
}

std::optional<NSRunningApplication> X11WindowServer::runningApplicationWithProcessIdentifier(
    std::int32_t processIdentifier) try {
  if (const auto list = table_ ? table_->current() : nullptr) {
    for (const auto* windows : {&list->onScreen, &list->offScreen}) {
      for (const WindowRecord& window : *windows) {
        if (window.processIdentifier == processIdentifier)
          return NSRunningApplication{window.bundleIdentifier};
      }
    }
  }
  const Application application = findApplication(processIdentifier, std::nullopt);
  if (application.name.empty()) return std::nullopt;
  return NSRunningApplication{application.bundleIdentifier};
} catch (const std::exception&) {
  return std::nullopt;
}

}  // namespace QelUtilVideo
