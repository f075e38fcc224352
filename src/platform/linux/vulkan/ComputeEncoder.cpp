#include "platform/linux/vulkan/ComputeEncoder.h"

#include "platform/linux/vulkan/DeviceTexture.h"
#include "platform/linux/vulkan/ImageBarrier.h"
#include "platform/linux/vulkan/TextureUpload.h"

#include <cstdint>

namespace QelUtilVideo {

namespace {

constexpr ImageUse kWritten{VK_IMAGE_LAYOUT_GENERAL, VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT,
                            VK_ACCESS_SHADER_WRITE_BIT};
constexpr ImageUse kRead{VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL,
                         VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT | VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT,
                         VK_ACCESS_SHADER_READ_BIT};
/// What was in it is written over, once it was read.
constexpr ImageUse kDiscarded{VK_IMAGE_LAYOUT_UNDEFINED, kRead.stages, kWritten.access};

}  // namespace

void ComputeEncoder::setBuffers(std::span<const std::shared_ptr<MTLBuffer>> buffers) {
  buffer_ = buffers.empty() ? nullptr : std::dynamic_pointer_cast<ByteBuffer>(buffers[0]);
}

void ComputeEncoder::setTextures(std::span<const std::shared_ptr<MTLTexture>> textures) {
  textures_ = {};
  for (std::size_t i = 0; i < textures.size() && i < textures_.size(); ++i) {
    textures_[i] = textureOn(submission_->gpu(), textures[i]);
  }
}

void ComputeEncoder::dispatchThreads(const MTLSize& threads, const MTLSize& threadsPerThreadgroup) {
  const MTLSize& group = threadsPerThreadgroup;
  if (group.width == 0 || group.height == 0) return;
  // Kernels leave threads outside of the picture alone.
  dispatchThreadgroups({(threads.width + group.width - 1) / group.width,
                        (threads.height + group.height - 1) / group.height, 1},
                       group);
}

void ComputeEncoder::dispatchThreadgroups(const MTLSize& threadgroups, const MTLSize&) {
  if (!hasAll()) return;
  const VkPipeline pipeline = pipeline_->on(submission_->gpu());
  const VkDescriptorSet set = pipeline != VK_NULL_HANDLE ? describe() : VkDescriptorSet{VK_NULL_HANDLE};
  if (set == VK_NULL_HANDLE) return;
  VkCommandBuffer commands = submission_->commands();
  for (std::size_t i = 0; i < textures_.size(); ++i) {
    if (pipeline_->reads(i)) recordUpload(textures_[i], *submission_);
    if (pipeline_->writes(i)) imageBarrier(commands, textures_[i]->image(), kDiscarded, kWritten);
  }
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_COMPUTE, pipeline);
  vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_COMPUTE, submission_->gpu()->kernelLayout(), 0, 1,
                          &set, 0, nullptr);
  vkCmdDispatch(commands, static_cast<std::uint32_t>(threadgroups.width),
                static_cast<std::uint32_t>(threadgroups.height), 1);
  submission_->keep(pipeline_);
  for (std::size_t i = 0; i < textures_.size(); ++i) {
    if (pipeline_->writes(i)) {
      imageBarrier(commands, textures_[i]->image(), kWritten, kRead);
      textures_[i]->setWritten();
    }
    submission_->keep(textures_[i]);
  }
}

bool ComputeEncoder::hasAll() const {
  if (!pipeline_ || (pipeline_->usesBuffer() && !buffer_)) return false;
  for (std::size_t i = 0; i < textures_.size(); ++i) {
    if (pipeline_->reads(i) && (!textures_[i] || !textures_[i]->isReadable())) return false;
    if (pipeline_->writes(i) && (!textures_[i] || !textures_[i]->isWritable())) return false;
  }
  return true;
}

VkDescriptorSet ComputeEncoder::describe() {
  const auto& gpu = submission_->gpu();
  const auto place = pipeline_->usesBuffer() ? submission_->place(buffer_->bytes()) : Submission::Place{};
  const VkDescriptorSet set = place ? submission_->makeSet(gpu->kernelSetLayout()) : VkDescriptorSet{};
  if (set == VK_NULL_HANDLE) return set;
  constexpr std::size_t most = ComputePipeline::kMostTextures;
  std::array<VkDescriptorImageInfo, 2 * most> images{};
  std::array<VkWriteDescriptorSet, 1 + 2 * most> writes{};
  std::uint32_t count = 0;
  const auto write = [&](std::size_t binding, VkDescriptorType type) -> VkWriteDescriptorSet& {
    VkWriteDescriptorSet& next = writes[count++];
    next.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
    next.dstSet = set;
    next.dstBinding = static_cast<std::uint32_t>(binding);
    next.descriptorCount = 1;
    next.descriptorType = type;
    return next;
  };
  const VkDescriptorBufferInfo bytes{place->buffer, place->offset, place->size};
  if (pipeline_->usesBuffer()) write(0, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER).pBufferInfo = &bytes;
  // Something at every binding: software drivers look at those that the kernel does not use, too.
  for (std::size_t i = 0; i < most; ++i) {
    const auto& read = textures_[pipeline_->reads(i) ? i : pipeline_->firstRead()];
    images[i] = {gpu->sampler(), read->view(), kRead.layout};
    write(1 + i, VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER).pImageInfo = &images[i];
    const auto& written = textures_[pipeline_->writes(i) ? i : pipeline_->firstWritten()];
    images[most + i] = {VK_NULL_HANDLE, written->view(), kWritten.layout};
    write(1 + most + i, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE).pImageInfo = &images[most + i];
  }
  vkUpdateDescriptorSets(gpu->device(), count, writes.data(), 0, nullptr);
  return set;
}

}  // namespace QelUtilVideo
