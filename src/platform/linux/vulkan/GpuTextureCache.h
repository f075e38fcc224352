#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"

#include <memory>

namespace QelUtilVideo {

/// Planes of pixel buffers as textures: copied to where the processor takes them from.
class GpuTextureCache final : public CVMetalTextureCache {
 public:
  explicit GpuTextureCache(std::shared_ptr<Gpu> gpu) : gpu_(std::move(gpu)) {}

  CVReturn CVMetalTextureCacheCreateTextureFromImage(const CVPixelBufferRef& image, MTLPixelFormat format,
                                                     std::size_t width, std::size_t height, std::size_t plane,
                                                     std::unique_ptr<CVMetalTexture>& texture) override;

 private:
  const std::shared_ptr<Gpu> gpu_;
};

}  // namespace QelUtilVideo
