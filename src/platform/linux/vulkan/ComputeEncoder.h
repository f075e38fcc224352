#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/ByteBuffer.h"
#include "platform/linux/vulkan/ComputePipeline.h"
#include "platform/linux/vulkan/GpuTexture.h"
#include "platform/linux/vulkan/Submission.h"

#include <array>
#include <memory>
#include <span>
#include <utility>

namespace QelUtilVideo {

/// Records each kernel as it is dispatched. One that lacks something that it uses is left out, and what it
/// would have written counts as never written. Kernels write all of a texture, and read none that they write.
class ComputeEncoder final : public MTLComputeCommandEncoder {
 public:
  /// The device outlives it.
  ComputeEncoder(std::shared_ptr<Submission> submission, MTLDevice& device)
      : submission_(std::move(submission)), device_(device) {}

  [[nodiscard]] MTLDevice& device() const override { return device_; }
  void setComputePipelineState(std::shared_ptr<MTLComputePipelineState> state) override {
    pipeline_ = std::dynamic_pointer_cast<ComputePipeline>(state);
  }
  void setBuffers(std::span<const std::shared_ptr<MTLBuffer>> buffers) override;
  void setTextures(std::span<const std::shared_ptr<MTLTexture>> textures) override;
  void dispatchThreads(const MTLSize& threads, const MTLSize& threadsPerThreadgroup) override;
  void dispatchThreadgroups(const MTLSize& threadgroups, const MTLSize& threadsPerThreadgroup) override;
  void endEncoding() override {}

 private:
  [[nodiscard]] bool hasAll() const;
  [[nodiscard]] VkDescriptorSet describe();

  const std::shared_ptr<Submission> submission_;
  MTLDevice& device_;
  std::shared_ptr<ComputePipeline> pipeline_;
  std::shared_ptr<ByteBuffer> buffer_;
  std::array<std::shared_ptr<GpuTexture>, ComputePipeline::kMostTextures> textures_;
};

}  // namespace QelUtilVideo
