#include "platform/MTKView.h"

#include "platform/CAMetalLayer.h"

#include <cmath>
#include <utility>

namespace QelUtilVideo {

MTKView::MTKView(CGRect frame, Dispatch& dispatch, std::shared_ptr<MTLDevice> device)
    : NSView(frame), dispatch_(dispatch), device_(std::move(device)) {}

MTKView::~MTKView() = default;

std::shared_ptr<CAMetalDrawable> MTKView::currentDrawable() {
  const auto layer = metalLayer();
  return layer ? layer->currentDrawable(drawableSize()) : nullptr;
}

std::optional<MTLRenderPassDescriptor> MTKView::currentRenderPassDescriptor() {
  const auto drawable = currentDrawable();
  if (!drawable) return std::nullopt;
  return MTLRenderPassDescriptor{drawable->texture(), clearColor_};
}

CGSize MTKView::drawableSize() const {
  const CGSize size = convertSizeToBacking(bounds().size);
  return {std::round(size.width), std::round(size.height)};
}

void MTKView::draw() {
  const auto draw = [self = shared_from_this(), this] { drawRect(bounds()); };
  if (const auto layer = metalLayer()) {
    layer->perform(draw);
  } else {
    draw();
  }
}

std::shared_ptr<CALayer> MTKView::makeBackingLayer() {
  auto layer = std::make_shared<CAMetalLayer>(dispatch_, device_);
  const std::weak_ptr<NSObject> weak = weak_from_this();
  layer->setDrawHandler([weak] {
    const auto view = std::dynamic_pointer_cast<MTKView>(weak.lock());
    if (view && view->enableSetNeedsDisplay()) view->draw();
  });
  return layer;
}

std::shared_ptr<CAMetalLayer> MTKView::metalLayer() const {
  return std::dynamic_pointer_cast<CAMetalLayer>(layer());
}

}  // namespace QelUtilVideo
