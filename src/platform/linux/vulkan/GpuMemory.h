#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"

#include <cstddef>
#include <memory>
#include <span>

namespace QelUtilVideo {

/// Bytes that processor and graphics processor both reach.
class GpuBuffer final : public MTLBuffer {
 public:
  /// Null when there is no memory.
  static std::shared_ptr<GpuBuffer> make(std::shared_ptr<Gpu> gpu, std::size_t size,
                                         VkBufferUsageFlags usage);
  GpuBuffer(const GpuBuffer&) = delete;
  GpuBuffer& operator=(const GpuBuffer&) = delete;
  ~GpuBuffer() override;

  [[nodiscard]] VkBuffer buffer() const { return buffer_.get(); }
  [[nodiscard]] std::byte* bytes() const { return bytes_; }
  [[nodiscard]] std::size_t length() const override { return size_; }

 private:
  GpuBuffer(std::shared_ptr<Gpu> gpu, std::size_t size) : gpu_(std::move(gpu)), size_(size) {}

  const std::shared_ptr<Gpu> gpu_;
  const std::size_t size_;
  VulkanHandle<VkDeviceMemory> memory_;
  VulkanHandle<VkBuffer> buffer_;
  std::byte* bytes_ = nullptr;
};

/// A picture of the graphics processor.
class GpuTexture final : public MTLTexture {
 public:
  /// Null when there is no memory, or a side is larger than the processor allows.
  static std::shared_ptr<GpuTexture> make(std::shared_ptr<Gpu> gpu, std::size_t width, std::size_t height,
                                          MTLPixelFormat format, VkImageUsageFlags usage);
  GpuTexture(const GpuTexture&) = delete;
  GpuTexture& operator=(const GpuTexture&) = delete;
  ~GpuTexture() override;

  [[nodiscard]] std::size_t width() const override { return width_; }
  [[nodiscard]] std::size_t height() const override { return height_; }
  [[nodiscard]] MTLPixelFormat pixelFormat() const override { return format_; }
  [[nodiscard]] const std::shared_ptr<Gpu>& gpu() const { return gpu_; }
  [[nodiscard]] VkImage image() const { return image_.get(); }
  [[nodiscard]] VkImageView view() const { return view_.get(); }
  /// Null for a picture that is not drawn on.
  [[nodiscard]] VkFramebuffer framebuffer() const { return framebuffer_.get(); }

  /// What has to be copied into the picture before it is first read.
  struct Upload {
    std::shared_ptr<GpuBuffer> bytes;
    std::uint32_t rowPixels = 0;  ///< distance of two rows
  };
  void setUpload(Upload upload) { upload_ = std::move(upload); }
  [[nodiscard]] Upload takeUpload() { return std::exchange(upload_, {}); }

 private:
  GpuTexture(std::shared_ptr<Gpu> gpu, std::size_t width, std::size_t height, MTLPixelFormat format)
      : gpu_(std::move(gpu)), width_(width), height_(height), format_(format) {}
  [[nodiscard]] bool allocate(VkImageUsageFlags usage);

  const std::shared_ptr<Gpu> gpu_;
  const std::size_t width_, height_;
  const MTLPixelFormat format_;
  VulkanHandle<VkDeviceMemory> memory_;
  VulkanHandle<VkImage> image_;
  VulkanHandle<VkImageView> view_;
  VulkanHandle<VkFramebuffer> framebuffer_;
  Upload upload_;
};

}  // namespace QelUtilVideo
