#pragma once

#include "platform/linux/vulkan/Gpu.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace QelUtilVideo {

/// Bytes that processor and graphics processor both reach.
class GpuBuffer {
 public:
  /// Null when there is no memory.
  static std::shared_ptr<GpuBuffer> make(std::shared_ptr<Gpu> gpu, std::size_t size,
                                         VkBufferUsageFlags usage);
  GpuBuffer(const GpuBuffer&) = delete;
  GpuBuffer& operator=(const GpuBuffer&) = delete;

  [[nodiscard]] VkBuffer buffer() const { return buffer_.get(); }
  [[nodiscard]] std::byte* bytes() const { return bytes_; }
  [[nodiscard]] std::size_t length() const { return size_; }

 private:
  GpuBuffer(std::shared_ptr<Gpu> gpu, std::size_t size) : gpu_(std::move(gpu)), size_(size) {}

  const std::shared_ptr<Gpu> gpu_;
  const std::size_t size_;
  VulkanHandle<VkDeviceMemory> memory_;  ///< goes last
  VulkanHandle<VkBuffer> buffer_;
  std::byte* bytes_ = nullptr;
};

}  // namespace QelUtilVideo
