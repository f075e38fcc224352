#include "platform/MTKView.h"

#include "platform/CAMetalLayer.h"

#include <utility>

namespace QelUtilVideo {

MTKView::MTKView(CGRect frame, Dispatch& dispatch, std::shared_ptr<MTLDevice> device)
    : NSView(frame), dispatch_(dispatch), device_(std::move(device)) {}

MTKView::~MTKView() = default;

std::shared_ptr<CAMetalDrawable> MTKView::currentDrawable() {
  const CGSize size = drawableSize();
  // One of another size was not presented before the view changed.
  if (currentDrawable_ && (currentDrawable_->isPresented() || currentSize_ != size)) currentDrawable_.reset();
  if (currentDrawable_) return currentDrawable_;
  const auto layer = metalLayer();
  if (layer) currentDrawable_ = layer->nextDrawable(size);
  currentSize_ = size;
  return currentDrawable_;
}

std::optional<MTLRenderPassDescriptor> MTKView::currentRenderPassDescriptor() {
  const auto drawable = currentDrawable();
  if (!drawable) return std::nullopt;
  return MTLRenderPassDescriptor{drawable->texture(), clearColor_};
}

CGSize MTKView::drawableSize() const { return convertSizeToBacking(bounds().size); }

void MTKView::draw() {
  drawRect(bounds());
  // What was presented belongs to the display now.
  if (currentDrawable_ && currentDrawable_->isPresented()) currentDrawable_.reset();
}

std::shared_ptr<CALayer> MTKView::makeBackingLayer() {
  auto layer = std::make_shared<CAMetalLayer>(dispatch_, device_);
  const std::weak_ptr<NSObject> weak = weak_from_this();
  layer->setDrawHandler([weak] {
    const auto view = std::dynamic_pointer_cast<MTKView>(weak.lock());
    return !view || view->drawMarked();
  });
  return layer;
}

std::shared_ptr<CAMetalLayer> MTKView::metalLayer() const {
  return std::dynamic_pointer_cast<CAMetalLayer>(layer());
}

bool MTKView::drawMarked() {
  if (!enableSetNeedsDisplay_) return true;
  if (!currentDrawable()) return false;
  draw();
  return true;
}

}  // namespace QelUtilVideo
