#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <volk.h>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace QelUtilVideo {

/// The least that a Vulkan program can do to draw bi-planar frames off screen in their own size: one frame at
/// a time, everything made beforehand, a copy of the bytes, two uploads, one triangle. What fails ends the
/// process. The driver's functions are loaded before.
class MinimalVulkan {
 public:
  MinimalVulkan(std::uint32_t width, std::uint32_t height);
  MinimalVulkan(const MinimalVulkan&) = delete;
  MinimalVulkan& operator=(const MinimalVulkan&) = delete;
  ~MinimalVulkan();

  /// Draws this frame, or the one before again if null. Returns once it was sent off.
  void draw(const CVPixelBuffer* frame);
  /// Of the processor's time stamps, in nanoseconds.
  [[nodiscard]] float timestampPeriod() const;
  /// Until the processor is done.
  void wait() const;

 private:
  struct Image;
  struct Objects;

  void makeDevice();
  void makePictures();
  void makePipeline();
  void makeCommands();
  [[nodiscard]] Image makeImage(std::uint32_t divisor, VkFormat format, VkImageUsageFlags usage);
  [[nodiscard]] VkDeviceMemory allocate(const VkMemoryRequirements& needs, VkMemoryPropertyFlags properties);
  [[nodiscard]] VkShaderModule makeModule(const std::uint32_t* words, std::size_t size);
  void upload(const Image& image, VkDeviceSize offset);

  const std::uint32_t width_, height_;
  const std::unique_ptr<Objects> made_;
};

}  // namespace QelUtilVideo
