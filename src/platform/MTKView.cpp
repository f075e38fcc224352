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
  const bool isOutgrown = currentSize_ != size && !isDrawing_;
  if (currentDrawable_ && (currentDrawable_->isPresented() || isOutgrown)) currentDrawable_.reset();
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
  // The host is called meanwhile, and may let go of the view.
  const auto self = shared_from_this();
  isDrawing_ = true;
  drawRect(bounds());
  isDrawing_ = false;
  const bool isPresented = currentDrawable_ && currentDrawable_->isPresented();
  // What was presented belongs to the display now.
  if (isPresented) currentDrawable_.reset();
  if (const auto layer = metalLayer()) layer->didDraw(isPresented);
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
