#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/Gpu.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// Compiled shaders by the names of their functions.
class ShaderLibrary final : public MTLLibrary, public std::enable_shared_from_this<ShaderLibrary> {
 public:
  using Code = std::vector<std::uint32_t>;

  /// Reads a library file, or says what is wrong with it.
  [[nodiscard]] static Result<std::shared_ptr<MTLLibrary>> read(const std::string& path);

  std::shared_ptr<MTLFunction> newFunctionWithName(const std::string& name) override;

 private:
  std::map<std::string, Code> functions_;
};

class GpuPipeline final : public MTLRenderPipelineState {
 public:
  /// Vertices are five floats: a place and a texture coordinate. A processor that is lost is no failure.
  [[nodiscard]] static Result<std::shared_ptr<MTLRenderPipelineState>> make(
      std::shared_ptr<Gpu> gpu, const MTLRenderPipelineDescriptor& descriptor);

  /// Built anew where the processor is another one; null when that fails. Main thread.
  [[nodiscard]] VkPipeline on(const std::shared_ptr<Gpu>& gpu);

 private:
  GpuPipeline(std::shared_ptr<Gpu> gpu, MTLRenderPipelineDescriptor descriptor)
      : descriptor_(std::move(descriptor)), gpu_(std::move(gpu)) {}
  /// What fails, or nothing.
  [[nodiscard]] std::optional<NSError> build();

  const MTLRenderPipelineDescriptor descriptor_;
  std::shared_ptr<Gpu> gpu_;
  VulkanHandle<VkPipeline> pipeline_;
};

}  // namespace QelUtilVideo
