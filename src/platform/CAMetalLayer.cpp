#include "platform/CAMetalLayer.h"

#include "platform/Dispatch.h"

#include <QelUtilVideo/platform/MainLoop.h>

#include <cmath>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr double kRefresh = 1.0 / 60;

}  // namespace

CAMetalLayer::CAMetalLayer(Dispatch& dispatch, std::shared_ptr<MTLDevice> device)
    : dispatch_(dispatch), device_(std::move(device)) {}

CAMetalLayer::~CAMetalLayer() = default;

std::shared_ptr<CAMetalDrawable> CAMetalLayer::nextDrawable(CGSize pixels) {
  const double width = std::round(pixels.width), height = std::round(pixels.height);
  if (!(width >= 1) || !(height >= 1)) return nullptr;
  if (!surface_ || !surface_->isUsable()) {
    surface_.reset();
    surface_ = device_->makeSurface(surface() ? std::optional(surface()->nativeWindow()) : std::nullopt);
  }
  if (!surface_) return nullptr;
  return surface_->nextDrawable(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
}

void CAMetalLayer::setVisible(bool visible) {
  isVisible_ = visible;
  if (visible && isMarked_) schedule(0);
}

void CAMetalLayer::setNeedsDisplay() {
  isMarked_ = true;
  if (isVisible_) schedule(0);
}

CGImageRef CAMetalLayer::contents() { return surface_ ? surface_->contents() : nullptr; }

void CAMetalLayer::surfaceOccluded(bool occluded) {
  if (!occluded) setNeedsDisplay();
}

void CAMetalLayer::schedule(double delay) {
  if (std::exchange(isScheduled_, true)) return;
  const std::weak_ptr<CAMetalLayer> weak = std::static_pointer_cast<CAMetalLayer>(shared_from_this());
  dispatch_.mainLoop().after(delay, [weak] {
    if (const auto layer = weak.lock()) layer->drawMarked();
  });
}

void CAMetalLayer::drawMarked() {
  isScheduled_ = false;
  if (isVisible_ && std::exchange(isMarked_, false) && draw_) draw_();
}

void CAMetalLayer::didDraw(bool presented) {
  isMarked_ = !presented || (surface_ && !surface_->isUsable());
  if (isMarked_ && isVisible_ && surface_) schedule(kRefresh);
}

}  // namespace QelUtilVideo
