#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"

#include <memory>
#include <optional>
#include <utility>

namespace QelUtilVideo {

/// Draws triangles. Main thread.
class RenderPipeline final : public MTLRenderPipelineState {
 public:
  /// Vertices are five floats: a place and a texture coordinate. A processor that is lost is no failure.
  [[nodiscard]] static Result<std::shared_ptr<MTLRenderPipelineState>> make(
      std::shared_ptr<Gpu> gpu, const MTLRenderPipelineDescriptor& descriptor);

  /// Built anew where the processor is another one; null when that fails. Main thread.
  [[nodiscard]] VkPipeline on(const std::shared_ptr<Gpu>& gpu);

 private:
  RenderPipeline(std::shared_ptr<Gpu> gpu, MTLRenderPipelineDescriptor descriptor)
      : descriptor_(std::move(descriptor)), gpu_(std::move(gpu)) {}
  /// What fails, or nothing.
  [[nodiscard]] std::optional<NSError> build();

  const MTLRenderPipelineDescriptor descriptor_;
  std::shared_ptr<Gpu> gpu_;
  VulkanHandle<VkPipeline> pipeline_;
};

}  // namespace QelUtilVideo
