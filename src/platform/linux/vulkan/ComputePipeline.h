#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/ShaderLibrary.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace QelUtilVideo {

/// Threads of a kernel that run side by side and share memory.
struct GroupShape {
  std::uint32_t width = 1, height = 1;
};

/// Runs a kernel. Of set 0, binding 0 is the kernel's buffer, bindings 1 to 3 are the textures of the indices
/// 0 to 2 where it reads them, and 4 to 6 the same where it writes them. Specialisation constants 0 and 1 are
/// the group's sides. Main thread.
class ComputePipeline final : public MTLComputePipelineState {
 public:
  static constexpr std::size_t kMostTextures = 3;

  /// Null when the driver does not take it, or it does not read and write a texture at least; a processor
  /// that is lost is no failure.
  [[nodiscard]] static std::shared_ptr<ComputePipeline> make(std::shared_ptr<Gpu> gpu, ShaderCode code,
                                                             GroupShape shape);
  /// The shape that kernels with no wish of their own get.
  [[nodiscard]] static GroupShape usualShape(const Gpu& gpu);

  [[nodiscard]] std::size_t threadExecutionWidth() const override { return shape_.width; }
  [[nodiscard]] std::size_t maxTotalThreadsPerThreadgroup() const override {
    return std::size_t{shape_.width} * shape_.height;
  }
  [[nodiscard]] GroupShape shape() const { return shape_; }
  [[nodiscard]] bool usesBuffer() const { return has(0); }
  [[nodiscard]] bool reads(std::size_t texture) const { return has(1 + texture); }
  [[nodiscard]] bool writes(std::size_t texture) const { return has(1 + kMostTextures + texture); }
  [[nodiscard]] std::size_t firstRead() const { return firstAfter(1); }
  [[nodiscard]] std::size_t firstWritten() const { return firstAfter(1 + kMostTextures); }

  /// Built anew where the processor is another one; null when that fails.
  [[nodiscard]] VkPipeline on(const std::shared_ptr<Gpu>& gpu);

 private:
  ComputePipeline(std::shared_ptr<Gpu> gpu, ShaderCode code, GroupShape shape);
  [[nodiscard]] bool has(std::size_t binding) const { return (bindings_ >> binding & 1U) != 0; }
  /// Of three bindings that begin there the first that is used; 3 when none is.
  [[nodiscard]] std::size_t firstAfter(std::size_t binding) const;
  [[nodiscard]] bool build();

  const ShaderCode code_;
  const GroupShape shape_;
  const std::uint32_t bindings_;  ///< a bit for each that the kernel uses
  std::shared_ptr<Gpu> gpu_;
  VulkanHandle<VkPipeline> pipeline_;
};

}  // namespace QelUtilVideo
