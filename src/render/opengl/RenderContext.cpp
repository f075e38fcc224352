#include "render/opengl/RenderContext.h"

#include "platform/HostCall.h"
#include "platform/Platform.h"
#include "render/FrameNotice.h"
#include "render/opengl/OpenGLRenderView.h"

#include <QelUtilVideo/RenderViewDataSource.h>
#include <QelUtilVideo/RenderViewDelegate.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace QelUtilVideo::opengl {

namespace {

std::int32_t wholePixels(double length) {
  constexpr double largest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::clamp(std::round(length), 0.0, largest));
}

/// Unlocks the base address of a buffer that is locked.
class UnlockAtEnd {
 public:
  explicit UnlockAtEnd(CVPixelBuffer& buffer) : buffer_(buffer) {}
  UnlockAtEnd(const UnlockAtEnd&) = delete;
  UnlockAtEnd& operator=(const UnlockAtEnd&) = delete;
  ~UnlockAtEnd() { CVPixelBufferUnlockBaseAddress(buffer_); }

 private:
  CVPixelBuffer& buffer_;
};

}  // namespace

RenderContext::RenderContext(Platform& platform, const std::string& logName)
    : gl_(platform.openGL(), logName), geometry_(platform.clock()), texture_(gl_), program_(gl_) {}

RenderContext::~RenderContext() = default;

void RenderContext::prepare() {
  geometry_.setNeedsUpdate();
  texture_.prepare();
  program_.prepare();
  program_.setup();

  if (!program_.use()) return;
  OpenGLFunctions& functions = gl_.functions();
  functions.glUniform1i(functions.glGetUniformLocation(program_.name(), "textureY"), 0);
  if (!gl_.noError()) return;
  gl_.checked()->glUniform1i(functions.glGetUniformLocation(program_.name(), "textureUV"), 1);
}

RenderContext::DrawReason RenderContext::drawReason(const OpenGLRenderView& view) {
  const RenderSettings settings = settings_.with([](RenderSettings& current) {
    RenderSettings taken = current;
    current.needsUpdate = false;
    return taken;
  });
  if (settings.needsUpdate) return DrawReason::settingsChanged;
  if (!settings.dataSource) return DrawReason::none;

  auto reason = DrawReason::none;
  callHost("RenderViewDataSource", [&] {
    if (settings.dataSource->hasImage() && geometry_.viewportSize() != viewportSize(view)) {
      reason = DrawReason::resized;
    } else if (settings.dataSource->timestamp() != lastTimestamp_ || geometry_.turn().rotateAngle != 0) {
      reason = DrawReason::content;
    }
  });
  return reason;
}

Geometry::Size RenderContext::viewportSize(const OpenGLRenderView& view) {
  const CGSize size = view.convertSizeToBacking(view.bounds().size);
  return {wholePixels(size.width), wholePixels(size.height)};
}

CGSize RenderContext::render(OpenGLRenderView& view, Geometry::Size viewport) {
  const RenderSettings settings = takeSettings();
  const auto frame = FrameSnapshot::take(settings.dataSource);
  tellOfNewFrame(view, view.renderDelegate(), frame, lastTimestamp_);
  clear(settings);
  // Where the picture goes in the end: asked before anything else may be bound.
  static_cast<void>(drawFramebuffer());

  const bool filteredOut = frame && settings.deviceType && *settings.deviceType != frame->deviceType;
  if (!frame || filteredOut || !frame->pixelBuffer || !Texture::accepts(*frame->pixelBuffer)) {
    lastMetadata_.reset();
    lastTimestamp_ = 0;
    return {};
  }
  if (!update(*frame, settings)) return {};

  const Geometry::Placement placement = geometry_.resize(viewport);
  publishFitMode(settings);
  drawSharp(placement.changed);
  return {static_cast<double>(placement.effectiveSize.width),
          static_cast<double>(placement.effectiveSize.height)};
}

void RenderContext::release() {
  program_.release();
  texture_.release();
}

RenderSettings RenderContext::takeSettings() {
  RenderSettings taken = settings_.with([](RenderSettings& current) {
    RenderSettings copy = current;
    current.geometryNeedsUpdate = false;
    return copy;
  });
  geometry_.setFitMode(taken.automaticallyAdjustsFitMode, taken.fitInBounds);
  if (taken.geometryNeedsUpdate) geometry_.setNeedsUpdate();
  return taken;
}

void RenderContext::clear(const RenderSettings& settings) const {
  const auto& color = settings.clearColor;
  gl_.checked()->glClearColor(color[0], color[1], color[2], color[3]);
  gl_.checked()->glClear(GL_COLOR_BUFFER_BIT);
}

GLint RenderContext::drawFramebuffer() const {
  GLint framebuffer = 0;
  gl_.checked()->glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &framebuffer);
  return framebuffer;
}

bool RenderContext::update(const FrameSnapshot& frame, const RenderSettings& settings) {
  const bool sameSource = lastMetadata_ && lastMetadata_->made(settings.dataSource, frame);
  if (CVPixelBufferLockBaseAddress(*frame.pixelBuffer) != kCVReturnSuccess) {
    // The frame before is shown again, if this context has one.
    return lastMetadata_ && texture_.imageSize() != Texture::Size{};
  }
  {
    const UnlockAtEnd locked(*frame.pixelBuffer);
    texture_.upload(*frame.pixelBuffer, frame.timestamp);
    geometry_.updateOrientation(frame.orientation, sameSource && settings.rotateAnimationEnabled,
                                texture_.imageSize());
  }
  lastMetadata_.emplace(settings.dataSource, frame);
  lastTimestamp_ = frame.timestamp;
  return true;
}

void RenderContext::publishFitMode(const RenderSettings& settings) {
  if (!settings.automaticallyAdjustsFitMode) return;
  settings_.with([&](RenderSettings& current) {
    if (current.fitRevision == settings.fitRevision) current.fitInBounds = geometry_.fitInBounds();
  });
}

void RenderContext::drawSharp(bool placementChanged) {
  const Geometry::Size viewport = geometry_.viewportSize();
  gl_.checked()->glViewport(0, 0, viewport.width, viewport.height);
  if (placementChanged) {
    program_.use();
    program_.setVertices(geometry_.makeVertices());
    program_.setTransform(geometry_.makeTransform());
  }
  program_.draw();
}

}  // namespace QelUtilVideo::opengl
