#include "platform/linux/vulkan/GpuBuffer.h"

namespace QelUtilVideo {

std::shared_ptr<GpuBuffer> GpuBuffer::make(std::shared_ptr<Gpu> gpu, std::size_t size,
                                           VkBufferUsageFlags usage) {
  std::shared_ptr<GpuBuffer> made(new GpuBuffer(std::move(gpu), size));
  Gpu& owner = *made->gpu_;
  auto info = vulkanStruct<VkBufferCreateInfo>(VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO);
  info.size = size;
  info.usage = usage;
  VkBuffer buffer = VK_NULL_HANDLE;
  if (size == 0 || !owner.check(vkCreateBuffer(owner.device(), &info, nullptr, &buffer), "vkCreateBuffer")) {
    return nullptr;
  }
  made->buffer_ = {owner.device(), buffer, vkDestroyBuffer};
  VkMemoryRequirements needs{};
  vkGetBufferMemoryRequirements(owner.device(), buffer, &needs);
  made->memory_ =
      owner.allocate(needs, VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT);
  if (!made->memory_) return nullptr;
  void* bytes = nullptr;
  if (!owner.check(vkBindBufferMemory(owner.device(), buffer, made->memory_.get(), 0),
                   "vkBindBufferMemory") ||
      !owner.check(vkMapMemory(owner.device(), made->memory_.get(), 0, VK_WHOLE_SIZE, 0, &bytes),
                   "vkMapMemory")) {
    return nullptr;
  }
  made->bytes_ = static_cast<std::byte*>(bytes);
  return made;
}

}  // namespace QelUtilVideo
