#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>

namespace QelUtilVideo {

[[nodiscard]] std::size_t bytesPerPixel(MTLPixelFormat format);

/// A picture of the graphics processor.
class GpuTexture final : public MTLTexture {
 public:
  /// Null when there is no memory, or a side is larger than the processor allows.
  static std::shared_ptr<GpuTexture> make(std::shared_ptr<Gpu> gpu, std::size_t width, std::size_t height,
                                          MTLPixelFormat format, VkImageUsageFlags usage);
  GpuTexture(const GpuTexture&) = delete;
  GpuTexture& operator=(const GpuTexture&) = delete;

  [[nodiscard]] std::size_t width() const override { return width_; }
  [[nodiscard]] std::size_t height() const override { return height_; }
  [[nodiscard]] MTLPixelFormat pixelFormat() const override { return format_; }
  void replaceRegion(const MTLRegion&, std::size_t, std::span<const std::byte>, std::size_t) override {}
  [[nodiscard]] const std::shared_ptr<Gpu>& gpu() const { return gpu_; }
  [[nodiscard]] VkImage image() const { return image_.get(); }
  [[nodiscard]] VkImageView view() const { return view_.get(); }
  /// Null for a picture that is not drawn on.
  [[nodiscard]] VkFramebuffer framebuffer() const { return framebuffer_.get(); }

  /// Whether kernels may write it; then it can be read once one has.
  [[nodiscard]] bool isWritable() const { return isWritable_; }
  [[nodiscard]] bool isReadable() const { return !isWritable_ || isWritten_; }
  void setWritten() { isWritten_ = true; }

  /// Which plane of which picture there is to be seen; generation 0 is none.
  struct Contents {
    std::uint64_t generation = 0;
    std::size_t plane = 0;
    friend bool operator==(const Contents&, const Contents&) = default;
  };
  /// Where the bytes of that lie.
  struct Source {
    VkBuffer bytes = VK_NULL_HANDLE;
    VkDeviceSize offset = 0;
    std::uint32_t rowPixels = 0;  ///< distance of two rows
    std::shared_ptr<void> owner;  ///< the bytes last as long as it does
  };
  [[nodiscard]] const Contents& contents() const { return contents_; }
  void setContents(const Contents& contents, Source source) {
    contents_ = contents;
    source_ = std::move(source);
  }
  /// What everything that reads the picture has to copy into it first; null once that was sent off.
  [[nodiscard]] const Source* pendingSource() const { return source_ ? &*source_ : nullptr; }
  void setUploaded() { source_.reset(); }

 private:
  GpuTexture(std::shared_ptr<Gpu> gpu, std::size_t width, std::size_t height, MTLPixelFormat format)
      : gpu_(std::move(gpu)), width_(width), height_(height), format_(format) {}
  [[nodiscard]] bool allocate(VkImageUsageFlags usage);

  const std::shared_ptr<Gpu> gpu_;
  const std::size_t width_, height_;
  const MTLPixelFormat format_;
  VulkanHandle<VkDeviceMemory> memory_;  ///< goes last
  VulkanHandle<VkImage> image_;
  VulkanHandle<VkImageView> view_;
  VulkanHandle<VkFramebuffer> framebuffer_;
  bool isWritable_ = false;
  bool isWritten_ = false;
  Contents contents_;
  std::optional<Source> source_;
};

}  // namespace QelUtilVideo
