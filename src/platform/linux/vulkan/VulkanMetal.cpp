#include "platform/linux/vulkan/VulkanMetal.h"

#include "platform/linux/core/PrivateConnection.h"
#include "platform/linux/vulkan/ByteBuffer.h"
#include "platform/linux/vulkan/DeviceTexture.h"
#include "platform/linux/vulkan/GaussianBlur.h"
#include "platform/linux/vulkan/GpuQueue.h"
#include "platform/linux/vulkan/GpuTextureCache.h"
#include "platform/linux/vulkan/OffscreenDrawables.h"
#include "platform/linux/vulkan/RenderPipeline.h"
#include "platform/linux/vulkan/ShaderLibrary.h"
#include "platform/linux/vulkan/SharedGpu.h"
#include "platform/linux/vulkan/WindowDrawables.h"
#include "platform/linux/vulkan/XcbSurface.h"

#include <memory>
#include <utility>

namespace QelUtilVideo {

namespace {

class Device final : public MTLDevice, public std::enable_shared_from_this<Device> {
 public:
  Device(std::shared_ptr<Gpu> gpu, std::function<std::optional<std::string>()> libraryPath,
         TroubleHandler trouble)
      : gpu_(std::make_shared<SharedGpu>(std::move(gpu), std::move(trouble))),
        libraryPath_(std::move(libraryPath)) {}

  std::shared_ptr<MTLCommandQueue> newCommandQueue() override {
    return std::make_shared<GpuQueue>(gpu_, shared_from_this());
  }
  std::shared_ptr<MTLBuffer> newBufferWithBytes(std::span<const std::byte> bytes) override {
    return std::make_shared<ByteBuffer>(bytes);
  }
  Result<std::shared_ptr<MTLLibrary>> newDefaultLibraryWithBundle() override {
    return ShaderLibrary::read(libraryPath_().value_or("beside the library"));
  }
  Result<std::shared_ptr<MTLRenderPipelineState>> newRenderPipelineState(
      const MTLRenderPipelineDescriptor& descriptor) override {
    return RenderPipeline::make(gpu_->opened(), descriptor);
  }
  /// Kernels leave threads outside of the picture alone.
  [[nodiscard]] bool supportsFeatureSet(MTLFeatureSet) const override { return true; }
  std::shared_ptr<MTLTexture> newTextureWithDescriptor(const MTLTextureDescriptor& descriptor) override {
    auto made = std::make_shared<DeviceTexture>(descriptor);
    return made->on(gpu_->opened()) || gpu_->opened()->isLost() ? made : nullptr;
  }
  Result<std::shared_ptr<MTLComputePipelineState>> newComputePipelineStateWithFunction(
      const std::shared_ptr<MTLFunction>& function) override {
    const auto shader = std::dynamic_pointer_cast<ShaderFunction>(function);
    const auto& gpu = gpu_->opened();
    auto made =
        shader ? ComputePipeline::make(gpu, shader->code, ComputePipeline::usualShape(*gpu)) : nullptr;
    if (!made) return graphicsError(7, "the driver does not take the kernel");
    return std::shared_ptr<MTLComputePipelineState>(std::move(made));
  }
  bool MPSSupportsMTLDevice() override {
    if (!gaussians_) gaussians_ = GaussianKernels::make(gpu_->opened());
    return gaussians_ != nullptr;
  }
  std::unique_ptr<MPSImageGaussianBlur> newMPSImageGaussianBlur(float sigma) override {
    if (!MPSSupportsMTLDevice()) return nullptr;
    return std::make_unique<GaussianBlur>(gaussians_, sigma);
  }
  std::shared_ptr<CVMetalTextureCache> CVMetalTextureCacheCreate() override {
    return std::make_shared<GpuTextureCache>(gpu_);
  }
  std::unique_ptr<MetalSurface> makeSurface(const std::optional<NativeWindow>& window) override {
    gpu_->renew();
    const auto& gpu = gpu_->opened();
    if (gpu->isLost()) return nullptr;
    if (!window) return std::make_unique<OffscreenDrawables>(gpu);
    const auto connection = connectionTo(window->display);
    auto surface = connection ? XcbSurface::make(gpu, connection, window->window) : nullptr;
    if (!surface) return nullptr;
    return std::make_unique<WindowDrawables>(std::move(surface));
  }

 private:
  /// One for all windows of a server; null when there is none.
  std::shared_ptr<const PrivateConnection> connectionTo(const std::string& display) {
    auto connection = connection_.lock();
    if (connection && connection->isAlive() && display == display_) return connection;
    connection = PrivateConnection::open(display);
    connection_ = connection;
    display_ = display;
    return connection;
  }

  const std::shared_ptr<SharedGpu> gpu_;
  const std::function<std::optional<std::string>()> libraryPath_;
  std::shared_ptr<const GaussianKernels> gaussians_;
  std::weak_ptr<const PrivateConnection> connection_;
  std::string display_;
};

}  // namespace

VulkanMetal::VulkanMetal(std::function<std::optional<std::string>()> libraryPath, TroubleHandler trouble)
    : libraryPath_(std::move(libraryPath)), trouble_(std::move(trouble)) {}

std::shared_ptr<MTLDevice> VulkanMetal::MTLCreateSystemDefaultDevice() {
  std::call_once(once_, [this] {
    if (auto gpu = Gpu::open(trouble_))
      device_ = std::make_shared<Device>(std::move(gpu), libraryPath_, trouble_);
  });
  return device_;
}

}  // namespace QelUtilVideo
