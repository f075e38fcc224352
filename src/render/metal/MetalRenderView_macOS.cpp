#include "render/metal/MetalRenderView_macOS.h"

#include "log/Log.h"
#include "platform/CAMetalLayer.h"
#include "platform/Dispatch.h"
#include "platform/Root.h"
#include "render/Backends.h"
#include "render/DataSourceDescription.h"
#include "render/metal/RenderLoop.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <utility>

namespace QelUtilVideo {

std::shared_ptr<RenderViewImpl> makeMetalRenderView(CGRect frame, const std::shared_ptr<MTLDevice>& device) {
  return metal::MetalRenderView_macOS::make(frame, device, Root::current().platform());
}

}  // namespace QelUtilVideo

namespace QelUtilVideo::metal {

namespace {

MTLClearColor clearColorOf(const std::shared_ptr<const NSColor>& color) {
  const auto components = color ? color->usingDeviceRGBColorSpace() : std::nullopt;
  if (!components) return {0, 0, 0, 1};
  return {components->red, components->green, components->blue, components->alpha};
}

}  // namespace

MetalRenderView_macOS::MetalRenderView_macOS(Key, CGRect frame, const std::shared_ptr<MTLDevice>& device,
                                             Platform& platform)
    : MTKView(frame, platform.dispatch(), device),
      platform_(platform),
      logName_("[RenderView:Metal:" + std::to_string(nextLogID()) + "]"),
      renderContext_(platform, logName_, device),
      renderLoop_(std::make_shared<RenderLoop>(logName_)) {}

std::shared_ptr<MetalRenderView_macOS> MetalRenderView_macOS::make(CGRect frame,
                                                                   const std::shared_ptr<MTLDevice>& device,
                                                                   Platform& platform) {
  auto view = std::make_shared<MetalRenderView_macOS>(Key{}, frame, device, platform);
  view->initialise();
  return view;
}

std::shared_ptr<MetalRenderView_macOS> MetalRenderView_macOS::make(NSCoder&) {
  fatal("[MetalRenderView] init(coder:) has not been implemented");
}

void MetalRenderView_macOS::initialise() {
  setWantsBestResolutionOpenGLSurface(true);
  setWantsLayer(true);
  log(LogLevel::info, logName_ + " init(frame:)");
  setPaused(true);
  setEnableSetNeedsDisplay(true);
  const auto self = std::dynamic_pointer_cast<MetalRenderView_macOS>(shared_from_this());
  renderLoop_->setView(self);
  log(LogLevel::info, renderLoop_->logName() + " initialized display link");
  setClearColor({0, 0, 0, 1});
  screenObserver_ = platform_.notificationCenter().addObserver(
      NSWindowDidChangeScreenNotification, nullptr,
      [weak = std::weak_ptr(self)](const NSNotification& notification) {
        if (const auto view = weak.lock()) view->windowDidChangeScreen(notification);
      });
}

MetalRenderView_macOS::~MetalRenderView_macOS() {
  platform_.notificationCenter().removeObserver(screenObserver_);
  renderLoop_->invalidate();
  log(LogLevel::info, logName_ + " deinit");
}

void MetalRenderView_macOS::setHidden(bool hidden) {
  MTKView::setHidden(hidden);
  if (hidden) {
    renderLoop_->stop();
  } else if (isOnScreen()) {
    renderLoop_->start();
  }
}

void MetalRenderView_macOS::viewWillMoveToWindow(const std::shared_ptr<NSWindow>& window) {
  MTKView::viewWillMoveToWindow(window);
  if (!window || !window->screen()) renderLoop_->stop();
}

void MetalRenderView_macOS::viewDidMoveToWindow() {
  MTKView::viewDidMoveToWindow();
  if (!isHidden() && isOnScreen()) renderLoop_->start();
}

void MetalRenderView_macOS::windowDidChangeScreen(const NSNotification& notification) {
  const auto ours = window();
  if (ours && notification.object == ours && ours->screen()) renderLoop_->start();
}

bool MetalRenderView_macOS::isOnScreen() const {
  const auto ours = window();
  return ours && ours->screen();
}

void MetalRenderView_macOS::drawRect(CGRect) {
  const auto size = renderContext_.draw(*this);
  if (size) reportContentSize(*size);
}

void MetalRenderView_macOS::reportContentSize(CGSize size) {
  if (std::exchange(contentSize_, size) == size) return;
  const auto self = std::dynamic_pointer_cast<MetalRenderView_macOS>(shared_from_this());
  platform_.dispatch().mainQueue()->async([weak = std::weak_ptr(self)] {
    const auto view = weak.lock();
    if (!view) return;
    const auto renderView = std::dynamic_pointer_cast<RenderView>(view->superview());
    if (renderView) assignContentSize(*renderView, view->contentSize_);
  });
}

std::shared_ptr<RenderViewDelegate> MetalRenderView_macOS::renderDelegate() const {
  return renderDelegate_.lock();
}

void MetalRenderView_macOS::setRenderDelegate(const std::shared_ptr<RenderViewDelegate>& delegate) {
  renderDelegate_ = delegate;
}

std::shared_ptr<RenderViewDataSource> MetalRenderView_macOS::dataSource() const {
  return renderContext_.dataSource();
}

void MetalRenderView_macOS::setDataSource(std::shared_ptr<RenderViewDataSource> source) {
  if (!platform_.dispatch().mainLoop().isMainThread()) {
    log(LogLevel::error, logName_ + " must not update image buffer not on the main thread");
  }
  log(LogLevel::info, logName_ + " setDataSource " + dataSourceDescription(source));
  renderContext_.setDataSource(std::move(source));
}

std::optional<std::uint8_t> MetalRenderView_macOS::deviceType() const { return renderContext_.deviceType(); }

void MetalRenderView_macOS::setDeviceType(std::optional<std::uint8_t> type) {
  renderContext_.setDeviceType(type);
}

std::shared_ptr<const NSColor> MetalRenderView_macOS::backgroundColor() const { return backgroundColor_; }

void MetalRenderView_macOS::setBackgroundColor(std::shared_ptr<const NSColor> color) {
  backgroundColor_ = std::move(color);
  const MTLClearColor clear = clearColorOf(backgroundColor_);
  setClearColor(clear);
  if (const auto layer = metalLayer()) layer->setOpaque(clear.alpha == 1.0);
  renderContext_.setNeedsUpdate();
}

float MetalRenderView_macOS::blurRadius() const { return renderContext_.blurRadius(); }

void MetalRenderView_macOS::setBlurRadius(float radius) { renderContext_.setBlurRadius(radius); }

bool MetalRenderView_macOS::automaticallyAdjustsFitMode() const {
  return renderContext_.geometry().automaticallyAdjustsFitMode();
}

void MetalRenderView_macOS::setAutomaticallyAdjustsFitMode(bool adjusts) {
  renderContext_.geometry().setAutomaticallyAdjustsFitMode(adjusts);
  if (adjusts) renderContext_.setNeedsUpdate();
}

bool MetalRenderView_macOS::fitInBounds() const { return renderContext_.geometry().fitInBounds(); }

void MetalRenderView_macOS::setFitInBounds(bool fit) {
  renderContext_.geometry().setFitInBounds(fit);
  renderContext_.setNeedsUpdate();
}

bool MetalRenderView_macOS::rotateAnimationEnabled() const { return renderContext_.rotateAnimationEnabled(); }

void MetalRenderView_macOS::setRotateAnimationEnabled(bool enabled) {
  renderContext_.setRotateAnimationEnabled(enabled);
}

}  // namespace QelUtilVideo::metal
