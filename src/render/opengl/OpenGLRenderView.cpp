#include "render/opengl/OpenGLRenderView.h"

#include "log/Log.h"
#include "platform/Dispatch.h"
#include "platform/Root.h"
#include "render/Backends.h"
#include "render/DataSourceDescription.h"
#include "render/opengl/OpenGLLayer.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/NSColor.h>

#include <array>
#include <utility>

namespace QelUtilVideo {

std::shared_ptr<RenderViewImpl> makeOpenGLRenderView(CGRect frame) {
  return opengl::OpenGLRenderView::make(frame, Root::current().platform());
}

}  // namespace QelUtilVideo

namespace QelUtilVideo::opengl {

namespace {

// Presented pictures alternate between two buffers, so a change has to be drawn more than once.
constexpr int redrawsAfterResize = 2;
constexpr int redrawsAfterSetting = 1;

std::array<float, 4> clearColorOf(const std::shared_ptr<const NSColor>& color) {
  const auto components = color ? color->usingDeviceRGBColorSpace() : std::nullopt;
  if (!components) return {0, 0, 0, 1};
  return {static_cast<float>(components->red), static_cast<float>(components->green),
          static_cast<float>(components->blue), static_cast<float>(components->alpha)};
}

}  // namespace

OpenGLRenderView::OpenGLRenderView(Key, CGRect frame, Platform& platform)
    : NSView(frame),
      platform_(platform),
      logName_("[RenderView:OpenGL:" + std::to_string(nextLogID()) + "]"),
      renderContext_(platform, logName_) {}

std::shared_ptr<OpenGLRenderView> OpenGLRenderView::make(CGRect frame, Platform& platform) {
  auto view = std::make_shared<OpenGLRenderView>(Key{}, frame, platform);
  view->initialise();
  return view;
}

std::shared_ptr<OpenGLRenderView> OpenGLRenderView::make(NSCoder&) {
  fatal("[OpenGLRenderView] init(coder:) has not been implemented");
}

void OpenGLRenderView::initialise() {
  log(LogLevel::info, logName_ + " init(frame:)");
  setWantsBestResolutionOpenGLSurface(true);
  setWantsLayer(true);
}

OpenGLRenderView::~OpenGLRenderView() {
  finalize();
  log(LogLevel::info, logName_ + " deinit");
}

bool OpenGLRenderView::canDraw() {
  const MutexLock drawing(drawing_);
  switch (renderContext_.drawReason(*this)) {
    case RenderContext::DrawReason::resized:
      redraw_ = redrawsAfterResize;
      return true;
    case RenderContext::DrawReason::settingsChanged:
      redraw_ = redrawsAfterSetting;
      return true;
    case RenderContext::DrawReason::content:
      return true;
    case RenderContext::DrawReason::none:
      break;
  }
  if (redraw_ == 0) return false;
  redraw_ -= 1;
  return true;
}

void OpenGLRenderView::finalize() {
  const auto context = preparedContext_.copy().lock();
  if (!context) return;
  const CGLContextObj lockable = context->cglContextObj();
  // A lost one took everything with it, the picture included.
  if (!lockable) return drawAgain();
  const ContextLock lock(lockable);
  const MutexLock drawing(drawing_);
  if (!isPrepared(context)) return;
  // On a thread that takes no context, the objects stay until theirs goes.
  if (context->makeCurrentContext()) renderContext_.release();
  preparedContext_.with([](auto& prepared) { prepared.reset(); });
  log(LogLevel::info, logName_ + " finalized");
  // Another context starts without the picture.
  drawAgain();
}

std::shared_ptr<CALayer> OpenGLRenderView::makeBackingLayer() {
  auto layer = std::make_shared<OpenGLLayer>(platform_.openGL(), logName_);
  log(LogLevel::info, logName_ + " layer init");
  layer->setNeedsDisplayOnBoundsChange(true);
  layer->setAsynchronous(true);
  return layer;
}

void OpenGLRenderView::viewDidChangeBackingProperties() {
  NSView::viewDidChangeBackingProperties();
  setNeedsDisplay(true);
}

void OpenGLRenderView::drawRect(CGRect) {
  const auto context = layerContext();
  if (!context || draw(context)) return;
  // The refresh went by in vain.
  const MutexLock drawing(drawing_);
  redraw_ += 1;
}

std::shared_ptr<RenderViewDelegate> OpenGLRenderView::renderDelegate() const {
  return renderDelegate_.copy().lock();
}

void OpenGLRenderView::setRenderDelegate(const std::shared_ptr<RenderViewDelegate>& delegate) {
  renderDelegate_.with([&](auto& current) { current = delegate; });
}

std::shared_ptr<RenderViewDataSource> OpenGLRenderView::dataSource() const {
  return renderContext_.settings().dataSource;
}

void OpenGLRenderView::setDataSource(std::shared_ptr<RenderViewDataSource> source) {
  if (!platform_.dispatch().mainLoop().isMainThread()) {
    log(LogLevel::error, logName_ + " must not update image buffer not on the main thread");
  }
  log(LogLevel::info, logName_ + " setDataSource " + dataSourceDescription(source));
  renderContext_.change([&](RenderSettings& settings) {
    // The source before leaves with the parameter, outside the lock.
    std::swap(settings.dataSource, source);
    settings.needsUpdate = true;
  });
}

std::optional<std::uint8_t> OpenGLRenderView::deviceType() const {
  return renderContext_.settings().deviceType;
}

void OpenGLRenderView::setDeviceType(std::optional<std::uint8_t> type) {
  renderContext_.change([&](RenderSettings& settings) {
    settings.deviceType = type;
    settings.needsUpdate = true;
  });
}

std::shared_ptr<const NSColor> OpenGLRenderView::backgroundColor() const { return backgroundColor_; }

void OpenGLRenderView::setBackgroundColor(std::shared_ptr<const NSColor> color) {
  backgroundColor_ = std::move(color);
  renderContext_.change([&](RenderSettings& settings) {
    settings.clearColor = clearColorOf(backgroundColor_);
    settings.needsUpdate = true;
  });
}

float OpenGLRenderView::blurRadius() const { return renderContext_.settings().blurRadius; }

void OpenGLRenderView::setBlurRadius(float radius) {
  renderContext_.change([&](RenderSettings& settings) {
    settings.blurRadius = radius;
    settings.needsUpdate = true;
  });
}

bool OpenGLRenderView::automaticallyAdjustsFitMode() const {
  return renderContext_.settings().automaticallyAdjustsFitMode;
}

void OpenGLRenderView::setAutomaticallyAdjustsFitMode(bool adjusts) {
  renderContext_.change([&](RenderSettings& settings) {
    settings.automaticallyAdjustsFitMode = adjusts;
    if (!adjusts) return;
    settings.geometryNeedsUpdate = true;
    settings.needsUpdate = true;
  });
}

bool OpenGLRenderView::fitInBounds() const { return renderContext_.settings().fitInBounds; }

void OpenGLRenderView::setFitInBounds(bool fit) {
  renderContext_.change([&](RenderSettings& settings) {
    settings.fitInBounds = fit;
    settings.fitRevision += 1;
    settings.geometryNeedsUpdate = true;
    settings.needsUpdate = true;
  });
}

bool OpenGLRenderView::rotateAnimationEnabled() const {
  return renderContext_.settings().rotateAnimationEnabled;
}

void OpenGLRenderView::setRotateAnimationEnabled(bool enabled) {
  renderContext_.change([&](RenderSettings& settings) { settings.rotateAnimationEnabled = enabled; });
}

std::shared_ptr<NSOpenGLContext> OpenGLRenderView::layerContext() const {
  const auto openGLLayer = std::dynamic_pointer_cast<OpenGLLayer>(layer());
  return openGLLayer ? openGLLayer->openGLContext() : nullptr;
}

bool OpenGLRenderView::isPrepared(const std::shared_ptr<NSOpenGLContext>& context) const {
  return preparedContext_.copy().lock() == context;
}

bool OpenGLRenderView::draw(const std::shared_ptr<NSOpenGLContext>& context) {
  const CGLContextObj lockable = context->cglContextObj();
  if (!lockable) return false;
  const ContextLock lock(lockable);
  const MutexLock drawing(drawing_);

  // Read once: a resize from here on is a reason to draw at the next refresh.
  const Geometry::Size viewport = RenderContext::viewportSize(*this);
  context->setSurfaceSize({static_cast<double>(viewport.width), static_cast<double>(viewport.height)});
  if (!context->makeCurrentContext()) return false;
  if (!isPrepared(context)) {
    log(LogLevel::info, logName_ + " preparing");
    renderContext_.prepare();
    preparedContext_.with([&](auto& prepared) { prepared = context; });
  }
  const CGSize size = renderContext_.render(*this, viewport);
  context->flushBuffer();
  reportContentSize(size);
  return true;
}

void OpenGLRenderView::drawAgain() {
  renderContext_.change([](RenderSettings& settings) { settings.needsUpdate = true; });
}

void OpenGLRenderView::reportContentSize(CGSize size) {
  const bool changed =
      contentSize_.with([&](CGSize& current) { return std::exchange(current, size) != size; });
  if (!changed) return;
  const auto self = std::dynamic_pointer_cast<OpenGLRenderView>(shared_from_this());
  platform_.dispatch().mainQueue()->async([weak = std::weak_ptr(self)] {
    const auto view = weak.lock();
    if (!view) return;
    const auto renderView = std::dynamic_pointer_cast<RenderView>(view->superview());
    if (renderView) assignContentSize(*renderView, view->contentSize_.copy());
  });
}

}  // namespace QelUtilVideo::opengl
