#pragma once

#include "platform/Metal.h"
#include "platform/Synchronised.h"
#include "render/FrameSnapshot.h"
#include "render/metal/Geometry.h"

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace QelUtilVideo {
class Platform;
class RenderViewDataSource;
}  // namespace QelUtilVideo

namespace QelUtilVideo::metal {

class Blur;
class MetalRenderView_macOS;
struct PlaneTextures;

/// Everything that a Metal view draws with, and the decision what to draw. Main thread. What the device has
/// to provide for is made on first use and kept.
class RenderContext {
 public:
  RenderContext(Platform& platform, std::string logName, std::shared_ptr<MTLDevice> device);
  RenderContext(const RenderContext&) = delete;
  RenderContext& operator=(const RenderContext&) = delete;
  ~RenderContext();

  /// Whether the coming refresh has something to show that the last one had not.
  [[nodiscard]] bool isDue() const;
  /// Draws the current frame, or clears the view where there is none to be shown. Answers the size of the
  /// picture as it is shown, (0, 0) for none; absent when nothing could be drawn at all.
  [[nodiscard]] std::optional<CGSize> draw(MetalRenderView_macOS& view);

  /// Any thread.
  [[nodiscard]] std::shared_ptr<RenderViewDataSource> dataSource() const { return dataSource_.copy(); }
  /// Any thread.
  void setDataSource(std::shared_ptr<RenderViewDataSource> source);
  [[nodiscard]] std::optional<std::uint8_t> deviceType() const { return deviceType_; }
  void setDeviceType(std::optional<std::uint8_t> type);
  [[nodiscard]] bool rotateAnimationEnabled() const { return rotateAnimationEnabled_; }
  void setRotateAnimationEnabled(bool enabled) { rotateAnimationEnabled_ = enabled; }
  [[nodiscard]] float blurRadius() const { return blurRadius_; }
  void setBlurRadius(float radius);
  [[nodiscard]] Geometry& geometry() { return geometry_; }
  [[nodiscard]] const Geometry& geometry() const { return geometry_; }

  /// A setting changed since the last redraw.
  [[nodiscard]] bool needsUpdate() const { return needsUpdate_; }
  void setNeedsUpdate() { needsUpdate_ = true; }
  /// Of the frame drawn last; 0: the last redraw showed none.
  [[nodiscard]] double lastTimestamp() const { return lastTimestamp_; }

 private:
  [[nodiscard]] std::optional<CGSize> drawCurrent(MetalRenderView_macOS& view);
  [[nodiscard]] std::optional<PlaneTextures> texturesOf(const std::optional<FrameSnapshot>& frame);
  void drawImage(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass,
                 const PlaneTextures& planes);
  void drawBlurred(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass,
                   const PlaneTextures& planes);
  void drawSharp(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass,
                 const PlaneTextures& planes);
  void clear(MTLCommandBuffer& commands, const MTLRenderPassDescriptor& pass);

  [[nodiscard]] MTLCommandQueue& commandQueue();
  [[nodiscard]] CVMetalTextureCache& textureCache();

  Platform& platform_;
  const std::string logName_;
  Synchronised<std::shared_ptr<RenderViewDataSource>> dataSource_;
  std::optional<std::uint8_t> deviceType_;
  std::optional<FrameOrigin> lastMetadata_;  ///< who made the frame drawn last
  double lastTimestamp_ = 0;
  bool rotateAnimationEnabled_ = false;
  float blurRadius_ = 0;
  std::atomic<bool> needsUpdate_ = false;
  Geometry geometry_;
  std::unique_ptr<Blur> blur_;
  const std::shared_ptr<MTLDevice> device_;
  std::shared_ptr<MTLCommandQueue> commandQueue_;
  std::shared_ptr<MTLRenderPipelineState> renderRGB_, renderYUV_;
  std::shared_ptr<CVMetalTextureCache> textureCache_;
};

}  // namespace QelUtilVideo::metal
