#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/GpuTexture.h"

#include <cstddef>
#include <memory>
#include <vector>

namespace QelUtilVideo {

/// A texture of no processor in particular: there is a picture of it on the one that is asked last, which has
/// the bytes that were put into it, while what kernels wrote is lost with a processor. Main thread.
class DeviceTexture final : public MTLTexture {
 public:
  explicit DeviceTexture(const MTLTextureDescriptor& descriptor) : descriptor_(descriptor) {}

  [[nodiscard]] std::size_t width() const override { return descriptor_.width; }
  [[nodiscard]] std::size_t height() const override { return descriptor_.height; }
  [[nodiscard]] MTLPixelFormat pixelFormat() const override { return descriptor_.pixelFormat; }
  void replaceRegion(const MTLRegion& region, std::size_t mipmapLevel, std::span<const std::byte> bytes,
                     std::size_t bytesPerRow) override;

  /// Null when there is no memory.
  [[nodiscard]] std::shared_ptr<GpuTexture> on(const std::shared_ptr<Gpu>& gpu);

 private:
  [[nodiscard]] bool copyToStaging(const std::shared_ptr<Gpu>& gpu);

  const MTLTextureDescriptor descriptor_;
  std::vector<std::byte> bytes_;  ///< rows without padding; none: never replaced
  bool isReplaced_ = false;       ///< and the picture has none of it yet
  std::shared_ptr<GpuTexture> picture_;
};

/// What a processor has of a texture of this layer; null for one of another processor.
[[nodiscard]] std::shared_ptr<GpuTexture> textureOn(const std::shared_ptr<Gpu>& gpu,
                                                    const std::shared_ptr<MTLTexture>& texture);

}  // namespace QelUtilVideo
