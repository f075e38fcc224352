#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/SharedGpu.h"

#include <array>
#include <memory>

namespace QelUtilVideo {

/// One view's part of the textures that all views share: it keeps those of the picture that it gave last,
/// which is the one that is asked for again. Destroyed on any thread.
class GpuTextureCache final : public CVMetalTextureCache {
 public:
  explicit GpuTextureCache(std::shared_ptr<SharedGpu> gpu) : gpu_(std::move(gpu)) {}
  GpuTextureCache(const GpuTextureCache&) = delete;
  GpuTextureCache& operator=(const GpuTextureCache&) = delete;
  ~GpuTextureCache() override;

  CVReturn CVMetalTextureCacheCreateTextureFromImage(const CVPixelBufferRef& image, MTLPixelFormat format,
                                                     std::size_t width, std::size_t height, std::size_t plane,
                                                     std::unique_ptr<CVMetalTexture>& texture) override;
  /// What was done for all views of the processor, for tests and benchmarks.
  [[nodiscard]] const GpuCounters& counters() const { return gpu_->opened()->counters(); }

 private:
  const std::shared_ptr<SharedGpu> gpu_;
  std::shared_ptr<GpuPlanes> planes_;                 ///< that they are of
  std::array<std::shared_ptr<GpuTexture>, 2> given_;  ///< by plane
};

}  // namespace QelUtilVideo
