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
    : gl_(platform.openGL(), logName),
      geometry_(platform.clock()),
      texture_(gl_),
      program_(gl_),
      blur_(gl_) {}

RenderContext::~RenderContext() = default;

void RenderContext::prepare() {
  geometry_.setNeedsUpdate();
  texture_.prepare();
  program_.prepare();
  blur_.prepare();
  program_.setup();

  if (!program_.use()) return;
  gl_.functions().glUniform1i(program_.uniformLocation("textureY"), 0);
  if (!gl_.noError()) return;
  gl_.checked()->glUniform1i(program_.uniformLocation("textureUV"), 1);
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
  const GLuint target = drawFramebuffer();

  const bool filteredOut = frame && settings.deviceType && *settings.deviceType != frame->deviceType;
  if (!frame || filteredOut || !frame->pixelBuffer || !Texture::accepts(*frame->pixelBuffer)) {
    lastMetadata_.reset();
    lastTimestamp_ = 0;
    return {};
  }
  if (!update(*frame, settings)) return {};

  const Geometry::Placement placement = geometry_.resize(viewport);
  publishFitMode(settings);
  const Blur::State blur = blur_.update(settings.blurRadius, geometry_.imageSize());
  if (blur.active) {
    drawBlurred(placement.changed, blur.changed, target);
  } else {
    // A blur that went off leaves the full-screen quad behind.
    drawSharp(placement.changed || blur.changed);
  }
  return {static_cast<double>(placement.effectiveSize.width),
          static_cast<double>(placement.effectiveSize.height)};
}

void RenderContext::release() {
  blur_.release();
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

GLuint RenderContext::drawFramebuffer() const {
  GLint framebuffer = 0;
  gl_.checked()->glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &framebuffer);
  return static_cast<GLuint>(framebuffer);
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

void RenderContext::drawSharp(bool quadChanged) const {
  const Geometry::Size viewport = geometry_.viewportSize();
  gl_.checked()->glViewport(0, 0, viewport.width, viewport.height);
  if (quadChanged) {
    program_.use();
    place(program_);
  }
  program_.draw();
}

void RenderContext::drawBlurred(bool placementChanged, bool blurChanged, GLuint target) const {
  const Geometry::Size image = geometry_.imageSize();
  gl_.checked()->glClearColor(0, 0, 0, 1);
  gl_.checked()->glViewport(0, 0, image.width, image.height);

  gl_.checked()->glBindFramebuffer(GL_FRAMEBUFFER, blur_.framebuffer(0));
  gl_.checked()->glClear(GL_COLOR_BUFFER_BIT);
  program_.use();
  if (blurChanged) {
    program_.setVertices(fullScreenQuad);
    program_.setTransform(identityTransform);
  }
  program_.draw();

  gl_.checked()->glBindFramebuffer(GL_FRAMEBUFFER, blur_.framebuffer(1));
  gl_.checked()->glClear(GL_COLOR_BUFFER_BIT);
  blur_.vertBlur().use();
  blur_.vertBlur().draw();

  const Geometry::Size viewport = geometry_.viewportSize();
  gl_.checked()->glBindFramebuffer(GL_FRAMEBUFFER, target);
  gl_.checked()->glViewport(0, 0, viewport.width, viewport.height);
  blur_.horzBlur().use();
  if (placementChanged || blurChanged) place(blur_.horzBlur());
  blur_.horzBlur().draw();
}

void RenderContext::place(const Program& program) const {
  program.setVertices(geometry_.makeVertices());
  program.setTransform(geometry_.makeTransform());
}

}  // namespace QelUtilVideo::opengl
