#include "platform/linux/vulkan/GpuTextureCache.h"

#include "platform/linux/vulkan/GpuMemory.h"

#include <cstring>
#include <utility>

namespace QelUtilVideo {

namespace {

class Wrapper final : public CVMetalTexture {
 public:
  explicit Wrapper(std::shared_ptr<MTLTexture> texture) : texture_(std::move(texture)) {}
  [[nodiscard]] std::shared_ptr<MTLTexture> CVMetalTextureGetTexture() const override { return texture_; }

 private:
  const std::shared_ptr<MTLTexture> texture_;
};

}  // namespace

CVReturn GpuTextureCache::CVMetalTextureCacheCreateTextureFromImage(
    const CVPixelBufferRef& image, MTLPixelFormat format, std::size_t width, std::size_t height,
    std::size_t plane, std::unique_ptr<CVMetalTexture>& texture) {
  const bool isBiPlanar = image && CVPixelBufferGetPlaneCount(*image) == 2 && plane < 2;
  if (!isBiPlanar || format != (plane == 0 ? MTLPixelFormat::r8Unorm : MTLPixelFormat::rg8Unorm)) {
    return kCVReturnInvalidPixelFormat;
  }
  const PixelPlane& rows = image->planes()[plane];
  if (rows.width != width || rows.height != height) return kCVReturnInvalidSize;
  const std::size_t bytesPerPixel = plane + 1, rowBytes = width * bytesPerPixel;
  auto made = GpuTexture::make(gpu_, width, height, format,
                               VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT);
  auto staging = made ? GpuBuffer::make(gpu_, rowBytes * height, VK_BUFFER_USAGE_TRANSFER_SRC_BIT) : nullptr;
  if (!staging) return kCVReturnAllocationFailed;
  (void)CVPixelBufferLockBaseAddress(*image);
  for (std::size_t y = 0; y < height; ++y) {
    std::memcpy(staging->bytes() + y * rowBytes, rows.baseAddress + y * rows.bytesPerRow, rowBytes);
  }
  (void)CVPixelBufferUnlockBaseAddress(*image);
  made->setUpload({std::move(staging), static_cast<std::uint32_t>(width)});
  texture = std::make_unique<Wrapper>(std::move(made));
  return kCVReturnSuccess;
}

}  // namespace QelUtilVideo
