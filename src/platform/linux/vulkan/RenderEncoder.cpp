#include "platform/linux/vulkan/RenderEncoder.h"

#include "platform/linux/vulkan/TextureUpload.h"

#include <cstdint>
#include <utility>

namespace QelUtilVideo {

void RenderEncoder::endEncoding() {
  const auto target = std::dynamic_pointer_cast<GpuTexture>(descriptor_.texture);
  if (!target || target->framebuffer() == VK_NULL_HANDLE || target->gpu() != submission_->gpu()) return;
  for (const auto& texture : textures_) {
    if (texture) recordUpload(texture, *submission_);
  }
  const auto drawing = inputs();
  const auto& color = descriptor_.clearColor;
  VkClearValue clear{};
  clear.color = {{static_cast<float>(color.red), static_cast<float>(color.green),
                  static_cast<float>(color.blue), static_cast<float>(color.alpha)}};
  auto pass = vulkanStruct<VkRenderPassBeginInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO);
  pass.renderPass = submission_->gpu()->renderPass();
  pass.framebuffer = target->framebuffer();
  pass.renderArea.extent = {static_cast<std::uint32_t>(target->width()),
                            static_cast<std::uint32_t>(target->height())};
  pass.clearValueCount = 1;
  pass.pClearValues = &clear;
  vkCmdBeginRenderPass(submission_->commands(), &pass, VK_SUBPASS_CONTENTS_INLINE);
  if (drawing) draw(*drawing);
  vkCmdEndRenderPass(submission_->commands());
  submission_->keep(target);
}

std::optional<RenderEncoder::Inputs> RenderEncoder::inputs() {
  if (!pipeline_ || !buffers_[0] || !buffers_[1] || !textures_[0] || count_ == 0) return std::nullopt;
  if (!textures_[0]->isReadable()) return std::nullopt;
  const auto vertices = submission_->place(buffers_[0]->bytes());
  const auto uniform = submission_->place(buffers_[1]->bytes());
  const VkPipeline pipeline = pipeline_->on(submission_->gpu());
  if (!vertices || !uniform || pipeline == VK_NULL_HANDLE) return std::nullopt;
  const VkDescriptorSet set = describe(*uniform);
  if (set == VK_NULL_HANDLE) return std::nullopt;
  return Inputs{pipeline, set, *vertices};
}

VkDescriptorSet RenderEncoder::describe(const Submission::Place& uniform) {
  const VkDescriptorSet set = submission_->makeSet(submission_->gpu()->setLayout());
  if (set == VK_NULL_HANDLE) return set;
  const VkDescriptorBufferInfo bytes{uniform.buffer, uniform.offset, uniform.size};
  std::array<VkDescriptorImageInfo, 2> images{};
  std::array<VkWriteDescriptorSet, 3> writes{};
  writes[0].sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
  writes[0].dstSet = set;
  writes[0].descriptorCount = 1;
  writes[0].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
  writes[0].pBufferInfo = &bytes;
  for (std::size_t i = 0; i < images.size(); ++i) {
    // A pipeline of one texture sees it twice.
    const auto& texture = textures_[i] ? textures_[i] : textures_[0];
    images[i] = {submission_->gpu()->sampler(), texture->view(), VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL};
    writes[i + 1].sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
    writes[i + 1].dstSet = set;
    writes[i + 1].dstBinding = static_cast<std::uint32_t>(i + 1);
    writes[i + 1].descriptorCount = 1;
    writes[i + 1].descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    writes[i + 1].pImageInfo = &images[i];
  }
  vkUpdateDescriptorSets(submission_->gpu()->device(), writes.size(), writes.data(), 0, nullptr);
  return set;
}

void RenderEncoder::draw(const Inputs& inputs) {
  VkCommandBuffer commands = submission_->commands();
  const auto width = static_cast<float>(descriptor_.texture->width());
  const auto height = static_cast<float>(descriptor_.texture->height());
  // y grows upward for those who draw.
  const VkViewport viewport{0, height, width, -height, 0, 1};
  const VkRect2D scissor{{0, 0}, {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}};
  vkCmdSetViewport(commands, 0, 1, &viewport);
  vkCmdSetScissor(commands, 0, 1, &scissor);
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, inputs.pipeline);
  vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, submission_->gpu()->pipelineLayout(), 0,
                          1, &inputs.set, 0, nullptr);
  vkCmdBindVertexBuffers(commands, 0, 1, &inputs.vertices.buffer, &inputs.vertices.offset);
  vkCmdDraw(commands, count_, 1, start_, 0);
  submission_->keep(pipeline_);
  for (const auto& texture : textures_) submission_->keep(texture);
}

}  // namespace QelUtilVideo
