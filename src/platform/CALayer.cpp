#include "platform/CALayer.h"

#include <QelUtilVideo/platform/NSView.h>

#include <utility>

namespace QelUtilVideo {

CALayer::~CALayer() = default;

std::shared_ptr<NSView> CALayer::view() const {
  const MutexLock lock(mutex_);
  return view_.lock();
}

void CALayer::setSurface(std::shared_ptr<ViewSurface> surface) {
  if (surface == surface_) return;
  if (surface_) willLeaveSurface();
  surface_ = std::move(surface);
  didChangeSurface();
}

void CALayer::surfaceGone() {
  if (const auto view = this->view()) view->updateLayerSurface();
}

void CALayer::setView(std::weak_ptr<NSView> view) {
  const MutexLock lock(mutex_);
  view_ = std::move(view);
}

}  // namespace QelUtilVideo
