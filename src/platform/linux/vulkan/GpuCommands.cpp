#include "platform/linux/vulkan/GpuCommands.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Frames that the processor works at while another one is recorded.
constexpr std::size_t kMostInFlight = 3;
constexpr std::uint32_t kMostSets = 8;
/// Where textures are read.
constexpr VkPipelineStageFlags kReading =
    VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT | VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT;

void transition(VkCommandBuffer commands, VkImage image, VkImageLayout from, VkImageLayout to,
                VkPipelineStageFlags before, VkAccessFlags written, VkPipelineStageFlags after,
                VkAccessFlags read) {
  auto barrier = vulkanStruct<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  barrier.srcAccessMask = written;
  barrier.dstAccessMask = read;
  barrier.oldLayout = from;
  barrier.newLayout = to;
  barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  barrier.image = image;
  barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  vkCmdPipelineBarrier(commands, before, after, 0, 0, nullptr, 0, nullptr, 1, &barrier);
}

/// Copies what a texture has to show into it, unless that was sent off already.
void upload(Gpu& gpu, Submission& submission, const std::shared_ptr<GpuTexture>& texture) {
  const GpuTexture::Upload* pending = texture->pendingUpload();
  if (!pending || !submission.copiesInto(texture)) return;
  VkCommandBuffer commands = submission.commands();
  // Commands that were recorded earlier and sent first may have uploaded and read it.
  transition(commands, texture->image(), VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
             VK_PIPELINE_STAGE_TRANSFER_BIT | kReading, VK_ACCESS_TRANSFER_WRITE_BIT,
             VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT);
  VkBufferImageCopy region{};
  region.bufferOffset = pending->offset;
  region.bufferRowLength = pending->rowPixels;
  region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.imageExtent = {static_cast<std::uint32_t>(texture->width()),
                        static_cast<std::uint32_t>(texture->height()), 1};
  vkCmdCopyBufferToImage(commands, pending->bytes, texture->image(), VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1,
                         &region);
  transition(commands, texture->image(), VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
             VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT,
             VK_ACCESS_TRANSFER_WRITE_BIT, kReading, VK_ACCESS_SHADER_READ_BIT);
  submission.keep(pending->owner);
  ++gpu.counters().uploads;
}

/// Collects what one pass draws and records it at its end, since copies have to come before it.
class RenderEncoder final : public MTLRenderCommandEncoder {
 public:
  RenderEncoder(std::shared_ptr<Gpu> gpu, std::shared_ptr<Submission> submission,
                MTLRenderPassDescriptor descriptor)
      : gpu_(std::move(gpu)), submission_(std::move(submission)), descriptor_(std::move(descriptor)) {}

  void setRenderPipelineState(std::shared_ptr<MTLRenderPipelineState> state) override {
    pipeline_ = std::dynamic_pointer_cast<GpuPipeline>(state);
  }
  void setVertexBuffer(std::shared_ptr<MTLBuffer> buffer, std::size_t, std::size_t index) override {
    if (index < buffers_.size()) buffers_[index] = std::dynamic_pointer_cast<GpuBuffer>(buffer);
  }
  void setFragmentTexture(std::shared_ptr<MTLTexture> texture, std::size_t index) override {
    if (index < textures_.size()) textures_[index] = std::dynamic_pointer_cast<GpuTexture>(texture);
  }
  void drawPrimitives(MTLPrimitiveType, std::size_t vertexStart, std::size_t vertexCount) override {
    start_ = static_cast<std::uint32_t>(vertexStart);
    count_ = static_cast<std::uint32_t>(vertexCount);
  }
  void endEncoding() override;

 private:
  [[nodiscard]] VkDescriptorSet describe();
  void draw(VkDescriptorSet set);

  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<Submission> submission_;
  const MTLRenderPassDescriptor descriptor_;
  std::shared_ptr<GpuPipeline> pipeline_;
  std::array<std::shared_ptr<GpuBuffer>, 2> buffers_;
  std::array<std::shared_ptr<GpuTexture>, 2> textures_;
  std::uint32_t start_ = 0, count_ = 0;
};

void RenderEncoder::endEncoding() {
  const auto target = std::dynamic_pointer_cast<GpuTexture>(descriptor_.texture);
  for (const auto& texture : textures_) {
    if (texture) upload(*gpu_, *submission_, texture);
  }
  const bool isDrawn = pipeline_ && buffers_[0] && buffers_[1] && textures_[0] && count_ > 0;
  const VkDescriptorSet set = isDrawn ? describe() : VkDescriptorSet{VK_NULL_HANDLE};

  const auto& color = descriptor_.clearColor;
  VkClearValue clear{};
  clear.color = {{static_cast<float>(color.red), static_cast<float>(color.green),
                  static_cast<float>(color.blue), static_cast<float>(color.alpha)}};
  auto pass = vulkanStruct<VkRenderPassBeginInfo>(VK_STRUCTURE_TYPE_RENDER_PASS_BEGIN_INFO);
  pass.renderPass = gpu_->renderPass();
  pass.framebuffer = target->framebuffer();
  pass.renderArea.extent = {static_cast<std::uint32_t>(target->width()),
                            static_cast<std::uint32_t>(target->height())};
  pass.clearValueCount = 1;
  pass.pClearValues = &clear;
  vkCmdBeginRenderPass(submission_->commands(), &pass, VK_SUBPASS_CONTENTS_INLINE);
  if (set != VK_NULL_HANDLE) draw(set);
  vkCmdEndRenderPass(submission_->commands());
  submission_->keep(target);
}

VkDescriptorSet RenderEncoder::describe() {
  const VkDescriptorSet set = submission_->makeSet();
  if (set == VK_NULL_HANDLE) return set;
  const VkDescriptorBufferInfo uniform{buffers_[1]->buffer(), 0, buffers_[1]->length()};
  std::array<VkDescriptorImageInfo, 2> images{};
  std::array<VkWriteDescriptorSet, 3> writes{};
  writes[0].sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
  writes[0].dstSet = set;
  writes[0].descriptorCount = 1;
  writes[0].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
  writes[0].pBufferInfo = &uniform;
  for (std::size_t i = 0; i < images.size(); ++i) {
    // A pipeline of one texture sees it twice.
    const auto& texture = textures_[i] ? textures_[i] : textures_[0];
    images[i] = {gpu_->sampler(), texture->view(), VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL};
    writes[i + 1].sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
    writes[i + 1].dstSet = set;
    writes[i + 1].dstBinding = static_cast<std::uint32_t>(i + 1);
    writes[i + 1].descriptorCount = 1;
    writes[i + 1].descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    writes[i + 1].pImageInfo = &images[i];
  }
  vkUpdateDescriptorSets(gpu_->device(), writes.size(), writes.data(), 0, nullptr);
  return set;
}

void RenderEncoder::draw(VkDescriptorSet set) {
  VkCommandBuffer commands = submission_->commands();
  const auto width = static_cast<float>(descriptor_.texture->width());
  const auto height = static_cast<float>(descriptor_.texture->height());
  // y grows upward for those who draw.
  const VkViewport viewport{0, height, width, -height, 0, 1};
  const VkRect2D scissor{{0, 0}, {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)}};
  vkCmdSetViewport(commands, 0, 1, &viewport);
  vkCmdSetScissor(commands, 0, 1, &scissor);
  vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline_->pipeline());
  vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, gpu_->pipelineLayout(), 0, 1, &set, 0,
                          nullptr);
  const VkBuffer vertices = buffers_[0]->buffer();
  constexpr VkDeviceSize offset = 0;
  vkCmdBindVertexBuffers(commands, 0, 1, &vertices, &offset);
  vkCmdDraw(commands, count_, 1, start_, 0);
  submission_->keep(pipeline_);
  for (const auto& buffer : buffers_) submission_->keep(buffer);
  for (const auto& texture : textures_) submission_->keep(texture);
}

class CommandBuffer final : public MTLCommandBuffer {
 public:
  CommandBuffer(std::shared_ptr<Gpu> gpu, std::shared_ptr<Submission> submission)
      : gpu_(std::move(gpu)), submission_(std::move(submission)) {}

  [[nodiscard]] const std::string& label() const override { return label_; }
  void setLabel(const std::string& label) override { label_ = label; }
  std::unique_ptr<MTLRenderCommandEncoder> renderCommandEncoder(
      const MTLRenderPassDescriptor& descriptor) override {
    const auto target = std::dynamic_pointer_cast<GpuTexture>(descriptor.texture);
    if (!target || target->framebuffer() == VK_NULL_HANDLE) return nullptr;
    return std::make_unique<RenderEncoder>(gpu_, submission_, descriptor);
  }
  void presentDrawable(std::shared_ptr<CAMetalDrawable> drawable) override {
    presented_ = std::dynamic_pointer_cast<GpuDrawable>(drawable);
  }
  void commit() override {
    if (presented_) {
      presented_->present(*submission_);
      presented_->setPresented();
      submission_->keep(presented_);
    }
    submission_->send();
  }

 private:
  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<Submission> submission_;
  std::string label_;
  std::shared_ptr<GpuDrawable> presented_;
};

}  // namespace

std::shared_ptr<Submission> Submission::make(std::shared_ptr<Gpu> gpu) {
  std::shared_ptr<Submission> made(new Submission(std::move(gpu)));
  return made->allocate() ? made : nullptr;
}

bool Submission::allocate() {
  VkDevice device = gpu_->device();
  auto pools = vulkanStruct<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  pools.flags = VK_COMMAND_POOL_CREATE_TRANSIENT_BIT;
  pools.queueFamilyIndex = gpu_->queueFamily();
  VkCommandPool pool = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateCommandPool(device, &pools, nullptr, &pool), "vkCreateCommandPool")) return false;
  pool_ = {device, pool, vkDestroyCommandPool};
  auto buffers = vulkanStruct<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
  buffers.commandPool = pool;
  buffers.level = VK_COMMAND_BUFFER_LEVEL_PRIMARY;
  buffers.commandBufferCount = 1;
  if (!gpu_->check(vkAllocateCommandBuffers(device, &buffers, &commands_), "vkAllocateCommandBuffers"))
    return false;

  constexpr std::array<VkDescriptorPoolSize, 2> sizes{
      {{VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, kMostSets},
       {VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 2 * kMostSets}}};
  auto sets = vulkanStruct<VkDescriptorPoolCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO);
  sets.maxSets = kMostSets;
  sets.poolSizeCount = sizes.size();
  sets.pPoolSizes = sizes.data();
  VkDescriptorPool descriptors = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateDescriptorPool(device, &sets, nullptr, &descriptors), "vkCreateDescriptorPool")) {
    return false;
  }
  descriptors_ = {device, descriptors, vkDestroyDescriptorPool};
  auto fences = vulkanStruct<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
  VkFence fence = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateFence(device, &fences, nullptr, &fence), "vkCreateFence")) return false;
  done_ = {device, fence, vkDestroyFence};
  return true;
}

Submission::~Submission() { wait(); }

bool Submission::isFree() {
  if (isSent_ && vkGetFenceStatus(gpu_->device(), done_.get()) == VK_NOT_READY) return false;
  isSent_ = false;
  // What goes may be a host's, who may come back here.
  std::exchange(copied_, {});
  std::exchange(kept_, {});
  return true;
}

bool Submission::begin() {
  VkDevice device = gpu_->device();
  const VkFence fence = done_.get();
  auto info = vulkanStruct<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  info.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  return gpu_->check(vkResetFences(device, 1, &fence), "vkResetFences") &&
         gpu_->check(vkResetDescriptorPool(device, descriptors_.get(), 0), "vkResetDescriptorPool") &&
         gpu_->check(vkResetCommandPool(device, pool_.get(), 0), "vkResetCommandPool") &&
         gpu_->check(vkBeginCommandBuffer(commands_, &info), "vkBeginCommandBuffer");
}

VkDescriptorSet Submission::makeSet() {
  const VkDescriptorSetLayout layout = gpu_->setLayout();
  auto info = vulkanStruct<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  info.descriptorPool = descriptors_.get();
  info.descriptorSetCount = 1;
  info.pSetLayouts = &layout;
  VkDescriptorSet set = VK_NULL_HANDLE;
  if (!gpu_->check(vkAllocateDescriptorSets(gpu_->device(), &info, &set), "vkAllocateDescriptorSets"))
    return {};
  return set;
}

bool Submission::copiesInto(const std::shared_ptr<GpuTexture>& texture) {
  if (std::ranges::find(copied_, texture) != copied_.end()) return false;
  copied_.push_back(texture);
  return true;
}

bool Submission::send() {
  if (!gpu_->check(vkEndCommandBuffer(commands_), "vkEndCommandBuffer")) return false;
  auto info = vulkanStruct<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  info.commandBufferCount = 1;
  info.pCommandBuffers = &commands_;
  isSent_ = gpu_->check(vkQueueSubmit(gpu_->queue(), 1, &info, done_.get()), "vkQueueSubmit");
  for (const auto& texture : std::exchange(copied_, {})) {
    if (isSent_) texture->setUploaded();
  }
  return isSent_;
}

void Submission::wait() {
  const VkFence fence = done_.get();
  if (isSent_) {
    vkWaitForFences(gpu_->device(), 1, &fence, VK_TRUE, std::numeric_limits<std::uint64_t>::max());
  }
}

std::shared_ptr<MTLCommandBuffer> GpuQueue::commandBuffer() {
  if (gpu_->isLost()) return nullptr;
  std::shared_ptr<Submission> submission;
  for (const auto& each : submissions_) {
    // One that somebody still holds is being recorded, or looked at. The others are all asked, since one that
    // is done lets pictures go.
    if (each.use_count() == 1 && each->isFree()) submission = each;
  }
  if (!submission && submissions_.size() < kMostInFlight) {
    submission = Submission::make(gpu_);
    if (submission) submissions_.push_back(submission);
  }
  if (!submission || !submission->begin()) return nullptr;
  return std::make_shared<CommandBuffer>(gpu_, std::move(submission));
}

}  // namespace QelUtilVideo
