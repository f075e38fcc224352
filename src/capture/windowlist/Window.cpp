#include "capture/windowlist/Window.h"

#include "capture/windowlist/DisplayGeometry.h"
#include "capture/windowlist/Error.h"
#include "capture/windowlist/UsableImage.h"
#include "capture/windowlist/WindowImage.h"
#include "log/Log.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <algorithm>
#include <utility>

namespace QelUtilVideo::windowlist {

namespace {

/// Captures with the same bounds after which a window stands still. It is taken to do so at first.
constexpr int stable = 5;

}  // namespace

Window::Window(Root& root, WindowInfo info)
    : Target(root.platform(), "[CapturableTarget:Window:" + std::to_string(nextLogID()) + "]"),
      root_(root),
      info_(std::move(info)),
      state_(stateOf(info_)),
      boundsStability_(stable) {}

std::string Window::uniqueID() const {
  return "QelUtilVideo.CapturableWindow.CGWindowID." + std::to_string(info_.windowID);
}

std::string Window::name() const {
  const std::string window = windowName();
  return window.empty() ? info_.ownerName() : info_.ownerName() + " - " + window;
}

bool Window::isAvailable() const {
  const auto probe = image();
  return probe && isUsableImage(*probe);
}

std::string Window::windowName() const { return state_.copy().windowName; }

bool Window::isOnScreen() const { return state_.copy().isOnScreen; }

CGRect Window::bounds() const { return state_.copy().bounds; }

CGRect Window::frame() const {
  const CGRect bounds = this->bounds();
  const double height = root_.get<CurrentDisplayGeometry>().get()->primaryScreenHeight;
  return CGRect{{CGRectGetMinX(bounds), height - CGRectGetMaxY(bounds)}, bounds.size};
}

std::shared_ptr<NSImage> Window::snapshotImage() const {
  auto snapshot = image();
  // Bytes move when they are first asked for: asked later, they would show the window of then, or be lost.
  if (!snapshot || !snapshot->dataProvider() || !snapshot->dataProvider()->bytes()) return nullptr;
  return std::make_shared<NSImage>(std::move(snapshot), CGSize{});
}

void Window::update(const WindowInfo& latest) { static_cast<void>(replaceState(latest)); }

Result<CVPixelBufferRef> Window::capture() {
  if (!captureFunction_) captureFunction_ = chooseCaptureFunction(root_, info_);
  CaptureResult result = captureFunction_();
  if (!result.description) return makeError(Error::failedToCapture);

  const bool isStill = replaceState({std::move(*result.description), result.windowID});
  boundsStability_ = isStill ? std::min(boundsStability_ + 1, stable) : 0;
  if (boundsStability_ < stable) return CVPixelBufferRef();
  return std::move(result.pixelBuffer);
}

Window::State Window::stateOf(const WindowInfo& info) {
  return {info.name(), info.isOnScreen(), info.bounds()};
}

bool Window::replaceState(const WindowInfo& latest) {
  return state_.with([fresh = stateOf(latest)](State& state) mutable {
    const bool isStill = CGRectEqualToRect(state.bounds, fresh.bounds);
    std::swap(state, fresh);
    return isStill;
  });
}

std::shared_ptr<CGImage> Window::image() const { return windowImage(platform(), info_.windowID); }

}  // namespace QelUtilVideo::windowlist
