#pragma once

#include <volk.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace QelUtilVideo {

/// Ends the process where a call failed.
void must(VkResult result);

/// One of Vulkan's structures with its type, and all else zero.
template <class T>
[[nodiscard]] T typed(VkStructureType type) {
  T made{};
  made.sType = type;
  return made;
}

struct MinimalImage {
  std::uint32_t width = 0, height = 0;
  VkImage image = VK_NULL_HANDLE;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  VkImageView view = VK_NULL_HANDLE;
};

/// The least that a Vulkan program needs to send one command buffer after the other. The driver's functions
/// are loaded before.
class MinimalDevice {
 public:
  MinimalDevice();
  MinimalDevice(const MinimalDevice&) = delete;
  MinimalDevice& operator=(const MinimalDevice&) = delete;
  /// What was made of it is destroyed.
  ~MinimalDevice();

  [[nodiscard]] VkDevice device() const { return device_; }
  /// Of the processor's time stamps, in nanoseconds.
  [[nodiscard]] float timestampPeriod() const;
  [[nodiscard]] VkDeviceMemory allocate(const VkMemoryRequirements& needs,
                                        VkMemoryPropertyFlags properties) const;
  [[nodiscard]] MinimalImage makeImage(std::uint32_t width, std::uint32_t height, VkFormat format,
                                       VkImageUsageFlags usage) const;
  void destroy(const MinimalImage& image) const;
  [[nodiscard]] VkShaderModule makeModule(std::span<const std::uint32_t> code) const;

  /// Waits for what was sent before.
  [[nodiscard]] VkCommandBuffer begin();
  void barrier(VkImage image, VkImageLayout from, VkImageLayout to, VkPipelineStageFlags before,
               VkAccessFlags written, VkPipelineStageFlags after, VkAccessFlags read) const;
  void send();
  /// Until the processor is done.
  void wait() const;

 private:
  VkInstance instance_ = VK_NULL_HANDLE;
  VkPhysicalDevice physical_ = VK_NULL_HANDLE;
  VkDevice device_ = VK_NULL_HANDLE;
  VkQueue queue_ = VK_NULL_HANDLE;
  VkCommandPool pool_ = VK_NULL_HANDLE;
  VkCommandBuffer commands_ = VK_NULL_HANDLE;
  VkFence done_ = VK_NULL_HANDLE;
};

}  // namespace QelUtilVideo
