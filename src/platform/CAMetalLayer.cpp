#include "platform/CAMetalLayer.h"

#include "platform/Dispatch.h"

#include <QelUtilVideo/platform/MainLoop.h>

#include <utility>

namespace QelUtilVideo {

namespace {

constexpr double kRefresh = 1.0 / 60;
/// A window that takes no pictures for so many refreshes is covered, or the like, and says when it is not any
/// more.
constexpr int kMostAttempts = 120;

}  // namespace

CAMetalLayer::CAMetalLayer(Dispatch& dispatch, std::shared_ptr<MTLDevice> device)
    : dispatch_(dispatch), device_(std::move(device)) {}

CAMetalLayer::~CAMetalLayer() = default;

void CAMetalLayer::perform(const std::function<void()>& draw) {
  if (isDrawing_) return;
  // The host is called meanwhile, and may let go of the layer.
  const auto self = shared_from_this();
  struct Drawing {
    explicit Drawing(bool& flag) : isDrawing(flag) { isDrawing = true; }
    ~Drawing() { isDrawing = false; }
    bool& isDrawing;
  };
  // Whoever marks it from here on has not been drawn.
  isMarked_ = false;
  {
    const Drawing drawing(isDrawing_);
    draw();
  }
  const auto drawable = std::exchange(drawable_, nullptr);
  const bool isPresented = drawable && drawable->isPresented();
  if (isPresented) attempts_ = 0;
  if (!isPresented || (surface_ && !surface_->isUsable())) isMarked_ = true;
  if (isMarked_) tryAgainLater();
}

std::shared_ptr<CAMetalDrawable> CAMetalLayer::currentDrawable(CGSize pixels) {
  const bool isOutgrown = !isDrawing_ && drawableSize_ != pixels;
  if (drawable_ && !drawable_->isPresented() && !isOutgrown) return drawable_;
  drawable_.reset();
  drawableSize_ = pixels;
  drawable_ = nextDrawable(pixels);
  return drawable_;
}

std::shared_ptr<CAMetalDrawable> CAMetalLayer::nextDrawable(CGSize pixels) {
  if (!(pixels.width >= 1) || !(pixels.height >= 1)) return nullptr;
  if (surface_ && !surface_->isUsable()) surface_.reset();
  if (!surface_ && !isRefused_) {
    surface_ = device_->makeSurface(surface() ? std::optional(surface()->nativeWindow()) : std::nullopt);
    isRefused_ = !surface_;
  }
  if (!surface_) return nullptr;
  return surface_->nextDrawable(static_cast<std::size_t>(pixels.width),
                                static_cast<std::size_t>(pixels.height));
}

void CAMetalLayer::dropSurface() {
  drawable_.reset();
  surface_.reset();
  isRefused_ = false;
}

void CAMetalLayer::didChangeSurface() {
  // The one before may have been none, and the drawables off screen.
  dropSurface();
  setNeedsDisplay();
}

void CAMetalLayer::setVisible(bool visible) {
  isVisible_ = visible;
  if (visible && isMarked_) setNeedsDisplay();
}

void CAMetalLayer::setNeedsDisplay() {
  isMarked_ = true;
  attempts_ = 0;
  if (isVisible_) schedule(0);
}

CGImageRef CAMetalLayer::contents() {
  if (!surface_) return nullptr;
  auto picture = surface_->contents();
  // It may turn out that the processor is lost.
  if (!surface_->isUsable()) setNeedsDisplay();
  return picture;
}

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
  if (isVisible_ && isMarked_ && draw_) draw_();
}

void CAMetalLayer::tryAgainLater() {
  const bool mayComeLater = surface_ && drawableSize_.width >= 1 && drawableSize_.height >= 1;
  if (!isVisible_ || !mayComeLater || attempts_ >= kMostAttempts) return;
  ++attempts_;
  schedule(kRefresh);
}

}  // namespace QelUtilVideo
