#include "platform/NSOpenGLLayer.h"

#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/HostCall.h"
#include "platform/Root.h"

#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <cmath>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t everyDisplay = 0xFFFFFFFF;
/// Times that a context is tried for again, and the seconds between them: what stood in the way, a graphics
/// processor that recovers or a server without room for one more client, is over soon or stays.
constexpr int mostAttempts = 5;
constexpr double attemptInterval = 1;

CGSize surfaceSize(const NSView& view) {
  const CGSize size = view.convertSizeToBacking(view.bounds().size);
  return {std::round(size.width), std::round(size.height)};
}

/// Refreshes per second of the screen that shows the view; 0 when nobody knows.
double refreshRate(const std::shared_ptr<NSView>& view) {
  const auto window = view ? view->window() : nullptr;
  const auto screen = window ? window->screen() : nullptr;
  return screen ? screen->maximumFramesPerSecond() : 0;
}

std::optional<NativeWindow> nativeWindow(const std::shared_ptr<ViewSurface>& surface) {
  return surface ? std::optional(surface->nativeWindow()) : std::nullopt;
}

const NativeWindow* pointer(const std::optional<NativeWindow>& window) { return window ? &*window : nullptr; }

}  // namespace

NSOpenGLLayer::NSOpenGLLayer(OpenGL& openGL) : openGL_(openGL) {}

NSOpenGLLayer::~NSOpenGLLayer() = default;

void NSOpenGLLayer::setAsynchronous(bool asynchronous) {
  asynchronous_ = asynchronous;
  if (!updateDriver()) tryAgainLater();
}

std::shared_ptr<NSOpenGLContext> NSOpenGLLayer::openGLContext() const {
  const MutexLock lock(mutex_);
  return context_;
}

void NSOpenGLLayer::setOpenGLContext(std::shared_ptr<NSOpenGLContext> context) {
  {
    const MutexLock lock(mutex_);
    std::swap(context_, context);
  }
  if (!updateDriver()) tryAgainLater();
}

NSOpenGLPixelFormat NSOpenGLLayer::openGLPixelFormatForDisplayMask(std::uint32_t) {
  return {{NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core, NSOpenGLPFADoubleBuffer, 0}};
}

std::shared_ptr<NSOpenGLContext> NSOpenGLLayer::openGLContextForPixelFormat(
    const NSOpenGLPixelFormat& format) {
  return openGL_.makeContext(format, pointer(nativeWindow(surface())));
}

bool NSOpenGLLayer::canDrawInOpenGLContext(NSOpenGLContext&, double) { return true; }

bool NSOpenGLLayer::refresh(double displayTime) {
  // Held until the context is unlocked: the last reference to either may go while the view draws.
  const auto self = shared_from_this();
  const auto view = this->view();
  const auto context = openGLContext();
  if (!view || !context) return false;
  bool drew = false;
  if (const CGLContextObj lockable = context->cglContextObj()) {
    const ContextLock lock(lockable);
    // While this thread waited, the layer may have got another one.
    if (openGLContext() == context) drew = draw(*view, *context, displayTime);
  }
  if (!context->cglContextObj()) replaceLostContext();
  return drew;
}

void NSOpenGLLayer::setVisible(bool visible) {
  visible_ = visible;
  provide();
  setNeedsDisplay();
}

void NSOpenGLLayer::screenChanged() {
  if (driver_) {
    driver_->setRefreshRate(refreshRate(view()));
  } else {
    provide();
  }
}

void NSOpenGLLayer::boundsChanged() {
  if (surface()) needsPresentation_ = true;
  if (needsDisplayOnBoundsChange_) setNeedsDisplay();
}

void NSOpenGLLayer::setNeedsDisplay() {
  // An asynchronous layer is asked at every refresh anyway.
  if (!visible_ || asynchronous_) return;
  Platform& platform = Root::current().platform();
  platform.dispatch().mainQueue()->async([weak = weak_from_this(), &clock = platform.clock()] {
    const auto layer = std::static_pointer_cast<NSOpenGLLayer>(weak.lock());
    if (layer && layer->visible_) layer->refresh(clock.CACurrentMediaTime());
  });
}

void NSOpenGLLayer::willLeaveView() { setOpenGLContext(nullptr); }

CGImageRef NSOpenGLLayer::contents() {
  const auto context = openGLContext();
  return context ? context->copyPresentedImage() : nullptr;
}

void NSOpenGLLayer::surfaceExposed() {
  needsPresentation_ = true;
  setNeedsDisplay();
}

void NSOpenGLLayer::surfaceOccluded(bool occluded) {
  occluded_ = occluded;
  provide();
  if (!occluded_) surfaceExposed();
}

void NSOpenGLLayer::willLeaveSurface() {
  drawable_.reset();
  if (const auto context = openGLContext()) static_cast<void>(context->setDrawable(nullptr));
}

void NSOpenGLLayer::didChangeSurface() {
  occluded_ = false;
  provide();
}

bool NSOpenGLLayer::draw(NSView& view, NSOpenGLContext& context, double displayTime) {
  context.setSurfaceSize(surfaceSize(view));
  // Taken before the view draws: what the display loses meanwhile is for the next refresh.
  const bool needsPresentation = needsPresentation_.exchange(false);
  bool drew = false;
  callHost("drawRect", [&] {
    if (!canDrawInOpenGLContext(context, displayTime)) return;
    drew = true;
    view.drawRect(view.bounds());
    if (context.cglContextObj()) replacesContext_ = false;
  });
  if (!drew && needsPresentation) context.presentAgain();
  if (!context.isShown()) needsPresentation_ = true;
  return drew;
}

void NSOpenGLLayer::provide() {
  attempts_.reset();
  const bool hasContext = !visible_ || provideContext();
  if (!updateDriver() || !hasContext) tryAgainLater();
}

void NSOpenGLLayer::tryAgainLater() {
  if (!visible_ || attempts_) return;
  Dispatch& dispatch = Root::current().platform().dispatch();
  attempts_ = dispatch.makeTimerSource(dispatch.mainQueue());
  attempts_->setEventHandler([weak = weak_from_this(), count = 0]() mutable {
    const auto layer = std::static_pointer_cast<NSOpenGLLayer>(weak.lock());
    if (!layer || !layer->attempts_) return;
    count += 1;
    const bool hasContext = !layer->visible_ || layer->provideContext();
    const bool isProvided = layer->updateDriver() && hasContext;
    if (isProvided || count == mostAttempts) layer->attempts_.reset();
    if (isProvided) layer->setNeedsDisplay();
  });
  attempts_->schedule(attemptInterval, attemptInterval);
  attempts_->resume();
}

bool NSOpenGLLayer::provideContext() {
  const auto window = nativeWindow(surface());
  const auto present = openGLContext();
  if (present && present->cglContextObj()) {
    const bool isTied = drawable_ == window || present->setDrawable(pointer(window));
    drawable_ = isTied ? window : std::nullopt;
    if (isTied) return true;
  }
  const NSOpenGLPixelFormat format = openGLPixelFormatForDisplayMask(everyDisplay);
  auto context = openGLContextForPixelFormat(format);
  if (!context) return false;
  drawable_ = window;
  setOpenGLContext(std::move(context));
  return true;
}

void NSOpenGLLayer::replaceLostContext() {
  if (replacesContext_.exchange(true)) return;
  Root::current().platform().dispatch().mainQueue()->async([weak = weak_from_this()] {
    const auto layer = std::static_pointer_cast<NSOpenGLLayer>(weak.lock());
    // One that was taken away meanwhile is not missed.
    if (!layer || !layer->visible_ || !layer->openGLContext()) return;
    layer->provide();
    layer->setNeedsDisplay();
  });
}

bool NSOpenGLLayer::updateDriver() {
  const auto context = openGLContext();
  const bool driven = visible_ && !occluded_ && asynchronous_ && context && context->cglContextObj();
  if (!driven) driver_.reset();
  if (driven && !driver_) {
    driver_ = openGL_.makeLayerDriver(std::static_pointer_cast<NSOpenGLLayer>(shared_from_this()),
                                      refreshRate(view()));
  }
  return !driven || driver_;
}

}  // namespace QelUtilVideo
