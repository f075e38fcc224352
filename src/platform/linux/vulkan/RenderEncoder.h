#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/ByteBuffer.h"
#include "platform/linux/vulkan/DeviceTexture.h"
#include "platform/linux/vulkan/RenderPipeline.h"
#include "platform/linux/vulkan/Submission.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace QelUtilVideo {

/// Collects what one pass draws and records it at its end, since copies have to come before it.
class RenderEncoder final : public MTLRenderCommandEncoder {
 public:
  /// Draws nothing on a picture that is none of the submission's processor's, as when that was lost since.
  RenderEncoder(std::shared_ptr<Submission> submission, MTLRenderPassDescriptor descriptor)
      : submission_(std::move(submission)), descriptor_(std::move(descriptor)) {}

  void setRenderPipelineState(std::shared_ptr<MTLRenderPipelineState> state) override {
    pipeline_ = std::dynamic_pointer_cast<RenderPipeline>(state);
  }
  void setVertexBuffer(std::shared_ptr<MTLBuffer> buffer, std::size_t, std::size_t index) override {
    if (index < buffers_.size()) buffers_[index] = std::dynamic_pointer_cast<ByteBuffer>(buffer);
  }
  void setFragmentTexture(std::shared_ptr<MTLTexture> texture, std::size_t index) override {
    if (index < textures_.size()) textures_[index] = textureOn(submission_->gpu(), texture);
  }
  void drawPrimitives(MTLPrimitiveType, std::size_t vertexStart, std::size_t vertexCount) override {
    start_ = static_cast<std::uint32_t>(vertexStart);
    count_ = static_cast<std::uint32_t>(vertexCount);
  }
  void endEncoding() override;

 private:
  /// What one drawing needs beside its pipeline.
  struct Inputs {
    VkPipeline pipeline = VK_NULL_HANDLE;
    VkDescriptorSet set = VK_NULL_HANDLE;
    Submission::Place vertices;
  };
  /// Absent when something is missing: then the picture is only cleared.
  [[nodiscard]] std::optional<Inputs> inputs();
  [[nodiscard]] VkDescriptorSet describe(const Submission::Place& uniform);
  void draw(const Inputs& inputs);

  const std::shared_ptr<Submission> submission_;
  const MTLRenderPassDescriptor descriptor_;
  std::shared_ptr<RenderPipeline> pipeline_;
  std::array<std::shared_ptr<ByteBuffer>, 2> buffers_;
  std::array<std::shared_ptr<GpuTexture>, 2> textures_;
  std::uint32_t start_ = 0, count_ = 0;
};

}  // namespace QelUtilVideo
