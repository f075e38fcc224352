#include "platform/linux/vulkan/VulkanMetal.h"

#include "platform/linux/vulkan/Gpu.h"
#include "platform/linux/vulkan/GpuCommands.h"
#include "platform/linux/vulkan/GpuMemory.h"
#include "platform/linux/vulkan/GpuPipelines.h"
#include "platform/linux/vulkan/GpuTextureCache.h"
#include "platform/linux/vulkan/OffscreenDrawables.h"

#include <cstring>
#include <utility>

namespace QelUtilVideo {

namespace {

class Device final : public MTLDevice {
 public:
  Device(std::shared_ptr<Gpu> gpu, std::function<std::optional<std::string>()> libraryPath)
      : gpu_(std::move(gpu)),
        planes_(std::make_shared<GpuPlanes>(gpu_)),
        libraryPath_(std::move(libraryPath)) {}

  std::shared_ptr<MTLCommandQueue> newCommandQueue() override { return std::make_shared<GpuQueue>(gpu_); }
  std::shared_ptr<MTLBuffer> newBufferWithBytes(std::span<const std::byte> bytes) override {
    auto buffer = GpuBuffer::make(gpu_, bytes.size(),
                                  VK_BUFFER_USAGE_VERTEX_BUFFER_BIT | VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT);
    if (buffer) std::memcpy(buffer->bytes(), bytes.data(), bytes.size());
    return buffer;
  }
  Result<std::shared_ptr<MTLLibrary>> newDefaultLibraryWithBundle() override {
    return ShaderLibrary::read(libraryPath_().value_or("beside the library"));
  }
  Result<std::shared_ptr<MTLRenderPipelineState>> newRenderPipelineState(
      const MTLRenderPipelineDescriptor& descriptor) override {
    return GpuPipeline::make(gpu_, descriptor);
  }
  std::shared_ptr<CVMetalTextureCache> CVMetalTextureCacheCreate() override {
    return std::make_shared<GpuTextureCache>(planes_);
  }
  std::unique_ptr<MetalSurface> makeSurface(const std::optional<NativeWindow>& window) override {
    if (window) return nullptr;
    return std::make_unique<OffscreenDrawables>(gpu_);
  }

 private:
  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<GpuPlanes> planes_;
  const std::function<std::optional<std::string>()> libraryPath_;
};

}  // namespace

VulkanMetal::VulkanMetal(std::function<std::optional<std::string>()> libraryPath, TroubleHandler trouble)
    : libraryPath_(std::move(libraryPath)), trouble_(std::move(trouble)) {}

std::shared_ptr<MTLDevice> VulkanMetal::MTLCreateSystemDefaultDevice() {
  std::call_once(once_, [this] {
    if (auto gpu = Gpu::open(trouble_)) device_ = std::make_shared<Device>(std::move(gpu), libraryPath_);
  });
  return device_;
}

}  // namespace QelUtilVideo
