#include <QelUtilVideo/platform/NSWindow.h>

#include "platform/CALayer.h"
#include "platform/Dispatch.h"
#include "platform/HostCall.h"
#include "platform/Images.h"
#include "platform/Root.h"

#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>

#include <cmath>
#include <cstring>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr double offscreenRefreshesPerSecond = 60;
constexpr double largestSideInPixels = 65'535;

CGSize sanitised(CGSize size) {
  const auto side = [](double value) { return std::isfinite(value) && value >= 1 ? value : 1; };
  return {side(size.width), side(size.height)};
}

double sanitised(double backingScaleFactor) {
  return backingScaleFactor >= 0.5 && backingScaleFactor <= 8 ? backingScaleFactor : 1;
}

CGRect scaled(const CGRect& rect, double scale) {
  return CGRectMake(rect.origin.x * scale, rect.origin.y * scale, rect.size.width * scale,
                    rect.size.height * scale);
}

/// A transparent picture with a surface over it.
struct Canvas {
  CGImageLayout layout;
  std::shared_ptr<ImageBytes> bytes;
  std::unique_ptr<CGContext> context;
};

/// Without a context when the picture is too large.
Canvas makeCanvas(CGSize pixels) {
  Canvas canvas;
  if (pixels.width > largestSideInPixels || pixels.height > largestSideInPixels) return canvas;
  canvas.layout.width = static_cast<std::size_t>(pixels.width);
  canvas.layout.height = static_cast<std::size_t>(pixels.height);
  canvas.layout.bytesPerRow = canvas.layout.width * 4;
  canvas.bytes = makeHeapBytes(canvas.layout.bytesPerRow * canvas.layout.height);
  if (!canvas.bytes) return canvas;
  std::memset(canvas.bytes->data(), 0, canvas.bytes->size());
  canvas.context =
      Root::current().platform().images().CGBitmapContextCreate(canvas.bytes->data(), canvas.layout);
  return canvas;
}

/// Draws the view's tree, back to front; answers whether there was anything to draw. `origin` is where
/// the superview's origin lies in the window.
bool drawTree(const NSView& view, CGPoint origin, double scale, CGContext& context) {
  if (view.isHidden()) return false;
  const CGRect frame = view.frame();
  const CGPoint place{origin.x + frame.origin.x, origin.y + frame.origin.y};
  bool drew = false;
  const auto layer = view.layer();
  if (const CGImageRef picture = layer ? layer->contents() : nullptr) {
    context.CGContextDrawImage(scaled({place, frame.size}, scale), *picture);
    drew = true;
  }
  for (const auto& subview : view.subviews()) drew |= drawTree(*subview, place, scale, context);
  return drew;
}

}  // namespace

std::shared_ptr<NSWindow> NSWindow::makeOffscreen(CGSize size, double backingScaleFactor) {
  auto window = std::make_shared<NSWindow>(Key{}, sanitised(size), sanitised(backingScaleFactor));
  window->setContentView(nullptr);
  return window;
}

NSWindow::NSWindow(Key, CGSize size, double backingScaleFactor)
    : size_(size), backingScaleFactor_(backingScaleFactor) {
  NSScreen::Properties properties;
  properties.localizedName = "Off-screen";
  properties.frame = {{0, 0}, size};
  properties.backingScaleFactor = backingScaleFactor;
  properties.maximumFramesPerSecond = offscreenRefreshesPerSecond;
  screen_ = std::make_shared<NSScreen>(std::move(properties));
}

NSWindow::~NSWindow() {
  if (!contentView_) return;
  callHost("A window's end", [&] {
    Dispatch& dispatch = Root::current().platform().dispatch();
    if (dispatch.mainLoop().isMainThread()) {
      contentView_->moveToWindow(nullptr);
    } else {
      dispatch.mainQueue()->async([view = std::move(contentView_)] {
        // Meanwhile it may have come into another window.
        if (!view->window()) view->moveToWindow(nullptr);
      });
    }
  });
}

void NSWindow::setContentView(std::shared_ptr<NSView> view) {
  if (view && view == contentView_) return;
  if (!view) view = std::make_shared<NSView>(CGRectZero);
  view->detach();
  if (view->superview() || view->window()) return;  // a hook has found it another place
  const auto old = std::exchange(contentView_, view);
  if (old) old->moveToWindow(nullptr);
  if (contentView_ != view) return;  // a hook has put another view here
  view->setFrame({{0, 0}, size_});
  view->moveToWindow(std::dynamic_pointer_cast<NSWindow>(shared_from_this()));
}

void NSWindow::setContentSize(CGSize size) {
  size_ = sanitised(size);
  contentView_->setFrame({{0, 0}, size_});
}

CGSize NSWindow::contentSize() const { return size_; }

std::shared_ptr<NSScreen> NSWindow::screen() const { return screen_; }

CGImageRef NSWindow::image() const {
  const CGSize pixels{std::round(size_.width * backingScaleFactor_),
                      std::round(size_.height * backingScaleFactor_)};
  Canvas canvas = makeCanvas(pixels);
  if (!canvas.context || !drawTree(*contentView_, {0, 0}, backingScaleFactor_, *canvas.context)) {
    return nullptr;
  }
  canvas.context.reset();
  return std::make_shared<CGImage>(canvas.layout, std::move(canvas.bytes));
}

void NSWindow::close() {
  screen_ = nullptr;
  setContentView(nullptr);
}

}  // namespace QelUtilVideo
