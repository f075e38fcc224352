#include "render/metal/RenderContext.h"

#include "log/Log.h"
#include "platform/HostCall.h"
#include "platform/Platform.h"
#include "render/FrameNotice.h"
#include "render/metal/Blur.h"
#include "render/metal/MetalRenderView_macOS.h"
#include "render/metal/Pipelines.h"
#include "render/metal/PlaneTextures.h"

#include <QelUtilVideo/RenderViewDataSource.h>
#include <QelUtilVideo/RenderViewDelegate.h>

#include <utility>

namespace QelUtilVideo::metal {

RenderContext::RenderContext(Platform& platform, std::string logName, std::shared_ptr<MTLDevice> device)
    : platform_(platform),
      logName_(std::move(logName)),
      geometry_(platform.clock(), logName_),
      device_(std::move(device)) {}

RenderContext::~RenderContext() = default;

void RenderContext::setDataSource(std::shared_ptr<RenderViewDataSource> source) {
  // The source before leaves with the parameter, outside the lock.
  dataSource_.with([&](auto& current) { current.swap(source); });
  needsUpdate_ = true;
}

void RenderContext::setDeviceType(std::optional<std::uint8_t> type) {
  deviceType_ = type;
  needsUpdate_ = true;
}

void RenderContext::setBlurRadius(float radius) {
  blurRadius_ = radius;
  needsUpdate_ = true;
}

bool RenderContext::isDue() const {
  if (needsUpdate_) return true;
  const auto source = dataSource();
  if (!source) return false;
  bool isNew = false;
  callHost("RenderViewDataSource", [&] { isNew = source->timestamp() != lastTimestamp_; });
  return isNew || geometry_.rotateAngle() != 0;
}

std::optional<CGSize> RenderContext::draw(MetalRenderView_macOS& view) {
  struct Finished {
    explicit Finished(std::atomic<bool>& flag) : needsUpdate(flag) {}
    ~Finished() { needsUpdate = false; }
    std::atomic<bool>& needsUpdate;
  } const finished(needsUpdate_);
  return drawCurrent(view);
}

std::optional<CGSize> RenderContext::drawCurrent(MetalRenderView_macOS& view) {
  if (!view.currentDrawable()) return std::nullopt;
  const auto source = dataSource();
  const auto frame = FrameSnapshot::take(source);
  tellOfNewFrame(view, view.renderDelegate(), frame, lastTimestamp_);
  // The host, which was asked and told, may have changed the view.
  const auto drawable = view.currentDrawable();
  const auto pass = view.currentRenderPassDescriptor();
  if (!drawable || !pass) return std::nullopt;
  const auto commands = commandQueue().commandBuffer();
  if (!commands) return std::nullopt;
  commands->setLabel(logName_);

  CGSize shown;
  if (const auto planes = texturesOf(frame)) {
    const bool isSameSource = lastMetadata_ && lastMetadata_->made(source, *frame);
    const bool animated = isSameSource && rotateAnimationEnabled_;
    geometry_.updateOrientation(frame->orientation, animated, planes->imageSize);
    // Of the drawable that there is, while the view may be larger by now.
    const auto target = drawable->texture();
    const Geometry::Size effective = geometry_.resize(
        *device_, {static_cast<double>(target->width()), static_cast<double>(target->height())});
    shown = {effective.width, effective.height};
    drawImage(*commands, *pass, *planes);
    lastMetadata_.emplace(source, *frame);
    lastTimestamp_ = frame->timestamp;
  } else {
    clear(*commands, *pass);
  }
  commands->presentDrawable(drawable);
  commands->commit();
  return shown;
}

std::optional<PlaneTextures> RenderContext::texturesOf(const std::optional<FrameSnapshot>& frame) {
  if (!frame || (deviceType_ && *deviceType_ != frame->deviceType) || !frame->pixelBuffer)
    return std::nullopt;
  return makeTextures(frame->pixelBuffer, textureCache(), logName_);
}

void RenderContext::drawImage(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass,
                              const PlaneTextures& planes) {
  if (blurRadius_ > 0) {
    if (!blur_) blur_ = std::make_unique<Blur>(platform_, device_, logName_);
    const MTLTexture& luma = *planes.textures[0];
    if (blur_->update(luma.width(), luma.height(), blurRadius_)) return drawBlurred(commands, pass, planes);
  }
  drawSharp(commands, pass, planes);
}

void RenderContext::drawBlurred(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass,
                                const PlaneTextures& planes) {
  blur_->encode(commands, planes);
  if (!renderRGB_) renderRGB_ = makeRenderPipeline(*device_, "renderVertex", "renderFragmentRGB", logName_);
  encodeRenderPipeline(commands, renderRGB_, pass, geometry_, {&blur_->output(), 1});
}

void RenderContext::drawSharp(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass,
                              const PlaneTextures& planes) {
  if (!renderYUV_) renderYUV_ = makeRenderPipeline(*device_, "renderVertex", "renderFragmentYUV", logName_);
  encodeRenderPipeline(commands, renderYUV_, pass, geometry_, planes.textures);
}

void RenderContext::clear(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass) {
  if (const auto encoder = commands.renderCommandEncoder(pass)) encoder->endEncoding();
  lastMetadata_.reset();
  lastTimestamp_ = 0;
}

MTLCommandQueue& RenderContext::commandQueue() {
  if (!commandQueue_) commandQueue_ = device_->newCommandQueue();
  if (!commandQueue_) fatal(logName_ + " creating command queue failed");
  return *commandQueue_;
}

CVMetalTextureCache& RenderContext::textureCache() {
  if (!textureCache_) textureCache_ = device_->CVMetalTextureCacheCreate();
  if (!textureCache_) fatal(logName_ + " creating texture cache failed");
  return *textureCache_;
}

}  // namespace QelUtilVideo::metal
