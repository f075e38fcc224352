#pragma once

#include "MinimalDevice.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstdint>
#include <memory>

namespace QelUtilVideo {

/// The least that a Vulkan program can do to draw bi-planar frames off screen in their own size: one frame at
/// a time, everything made beforehand, a copy of the bytes, two uploads, one triangle.
class MinimalDraw {
 public:
  MinimalDraw(std::uint32_t width, std::uint32_t height);
  MinimalDraw(const MinimalDraw&) = delete;
  MinimalDraw& operator=(const MinimalDraw&) = delete;
  ~MinimalDraw();

  [[nodiscard]] MinimalDevice& device() { return device_; }
  /// Draws this frame, or the one before again if null. Returns once it was sent off.
  void draw(const CVPixelBuffer* frame);

 private:
  struct Objects;

  void makePictures();
  void makePipeline();
  void upload(VkCommandBuffer commands, const MinimalImage& image, VkDeviceSize offset);

  const std::uint32_t width_, height_;
  MinimalDevice device_;
  const std::unique_ptr<Objects> made_;
};

}  // namespace QelUtilVideo
