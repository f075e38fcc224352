#include "platform/linux/vulkan/Submission.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t kMostSets = 16;
constexpr std::size_t kPlacesSize = 16 * 1024;
/// What Vulkan allows a processor to ask for at most.
constexpr std::size_t kPlaceAlignment = 256;

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

  constexpr std::array<VkDescriptorPoolSize, 3> sizes{
      {{VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, kMostSets},
       {VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, 3 * kMostSets},
       {VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 3 * kMostSets}}};
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
  if (state_ == State::recorded) return false;
  if (state_ == State::sent) {
    const VkResult result = vkGetFenceStatus(gpu_->device(), done_.get());
    if (result == VK_NOT_READY) return false;
    if (gpu_->check(result, "vkGetFenceStatus")) {
      gpu_->noteProgress();
    } else if (!gpu_->isLost()) {
      return false;
    }
  }
  abandon();
  return state_ == State::free;
}

void Submission::abandon() {
  state_ = State::free;
  // What goes may be a host's, who may come back here.
  std::exchange(copied_, {});
  std::exchange(kept_, {});
}

bool Submission::begin() {
  order(VK_NULL_HANDLE, VK_NULL_HANDLE);
  whenSent_ = nullptr;
  placed_ = 0;
  VkDevice device = gpu_->device();
  const VkFence fence = done_.get();
  auto info = vulkanStruct<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  info.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  const bool hasBegun =
      gpu_->check(vkResetFences(device, 1, &fence), "vkResetFences") &&
      gpu_->check(vkResetDescriptorPool(device, descriptors_.get(), 0), "vkResetDescriptorPool") &&
      gpu_->check(vkResetCommandPool(device, pool_.get(), 0), "vkResetCommandPool") &&
      gpu_->check(vkBeginCommandBuffer(commands_, &info), "vkBeginCommandBuffer");
  if (hasBegun) state_ = State::recorded;
  return hasBegun;
}

VkDescriptorSet Submission::makeSet(VkDescriptorSetLayout layout) {
  auto info = vulkanStruct<VkDescriptorSetAllocateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO);
  info.descriptorPool = descriptors_.get();
  info.descriptorSetCount = 1;
  info.pSetLayouts = &layout;
  VkDescriptorSet set = VK_NULL_HANDLE;
  if (!gpu_->check(vkAllocateDescriptorSets(gpu_->device(), &info, &set), "vkAllocateDescriptorSets"))
    return {};
  return set;
}

std::optional<Submission::Place> Submission::place(std::span<const std::byte> bytes) {
  if (bytes.empty()) return std::nullopt;
  const std::size_t size = (bytes.size() + kPlaceAlignment - 1) / kPlaceAlignment * kPlaceAlignment;
  constexpr VkBufferUsageFlags usage = VK_BUFFER_USAGE_VERTEX_BUFFER_BIT |
                                       VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT |
                                       VK_BUFFER_USAGE_STORAGE_BUFFER_BIT;
  if (!places_ || places_->length() - placed_ < size) {
    // The full one is still read.
    if (places_) keep(places_);
    places_ = GpuBuffer::make(gpu_, std::max(size, kPlacesSize), usage);
    placed_ = 0;
  }
  if (!places_) return std::nullopt;
  const Place place{places_->buffer(), placed_, bytes.size()};
  std::memcpy(places_->bytes() + placed_, bytes.data(), bytes.size());
  placed_ += size;
  return place;
}

bool Submission::copiesInto(const std::shared_ptr<GpuTexture>& texture) {
  if (std::ranges::find(copied_, texture) != copied_.end()) return false;
  copied_.push_back(texture);
  return true;
}

bool Submission::send() {
  const auto whenSent = std::exchange(whenSent_, nullptr);
  auto info = vulkanStruct<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  info.commandBufferCount = 1;
  info.pCommandBuffers = &commands_;
  constexpr VkPipelineStageFlags copying = VK_PIPELINE_STAGE_TRANSFER_BIT;
  info.waitSemaphoreCount = before_ ? 1 : 0;
  info.pWaitSemaphores = &before_;
  info.pWaitDstStageMask = &copying;
  info.signalSemaphoreCount = after_ ? 1 : 0;
  info.pSignalSemaphores = &after_;
  if (!gpu_->check(vkEndCommandBuffer(commands_), "vkEndCommandBuffer") ||
      !gpu_->check(gpu_->submit(info, done_.get()), "vkQueueSubmit")) {
    abandon();
    return false;
  }
  state_ = State::sent;
  for (const auto& texture : std::exchange(copied_, {})) texture->setUploaded();
  if (whenSent) whenSent();
  return true;
}

bool Submission::wait() {
  if (state_ != State::sent) return true;
  const VkFence fence = done_.get();
  constexpr auto forEver = std::numeric_limits<std::uint64_t>::max();
  const bool isDone =
      gpu_->check(vkWaitForFences(gpu_->device(), 1, &fence, VK_TRUE, forEver), "vkWaitForFences");
  if (isDone) {
    gpu_->noteProgress();
  } else if (!gpu_->isLost()) {
    // For want of memory; this takes none.
    gpu_->finish();
  }
  return isDone;
}

}  // namespace QelUtilVideo
