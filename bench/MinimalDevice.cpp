#include "MinimalDevice.h"

#include <cstdio>
#include <cstdlib>

namespace QelUtilVideo {

void must(VkResult result) {
  if (result == VK_SUCCESS) return;
  std::fprintf(stderr, "the minimal program failed: %d\n", static_cast<int>(result));
  std::abort();
}

MinimalDevice::MinimalDevice() {
  auto application = typed<VkApplicationInfo>(VK_STRUCTURE_TYPE_APPLICATION_INFO);
  application.apiVersion = VK_API_VERSION_1_1;
  auto instance = typed<VkInstanceCreateInfo>(VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO);
  instance.pApplicationInfo = &application;
  must(vkCreateInstance(&instance, nullptr, &instance_));
  std::uint32_t count = 1;
  // More than one is no failure.
  (void)vkEnumeratePhysicalDevices(instance_, &count, &physical_);
  constexpr float priority = 1;
  auto queue = typed<VkDeviceQueueCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO);
  queue.queueCount = 1;
  queue.pQueuePriorities = &priority;
  auto device = typed<VkDeviceCreateInfo>(VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO);
  device.queueCreateInfoCount = 1;
  device.pQueueCreateInfos = &queue;
  must(vkCreateDevice(physical_, &device, nullptr, &device_));
  vkGetDeviceQueue(device_, 0, 0, &queue_);

  auto pool = typed<VkCommandPoolCreateInfo>(VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO);
  must(vkCreateCommandPool(device_, &pool, nullptr, &pool_));
  auto buffers = typed<VkCommandBufferAllocateInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO);
  buffers.commandPool = pool_;
  buffers.commandBufferCount = 1;
  must(vkAllocateCommandBuffers(device_, &buffers, &commands_));
  auto fence = typed<VkFenceCreateInfo>(VK_STRUCTURE_TYPE_FENCE_CREATE_INFO);
  fence.flags = VK_FENCE_CREATE_SIGNALED_BIT;
  must(vkCreateFence(device_, &fence, nullptr, &done_));
}

VkDeviceMemory MinimalDevice::allocate(const VkMemoryRequirements& needs,
                                       VkMemoryPropertyFlags properties) const {
  VkPhysicalDeviceMemoryProperties has{};
  vkGetPhysicalDeviceMemoryProperties(physical_, &has);
  auto info = typed<VkMemoryAllocateInfo>(VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO);
  info.allocationSize = needs.size;
  const auto fits = [&](std::uint32_t type) {
    return (needs.memoryTypeBits >> type & 1U) != 0 &&
           (has.memoryTypes[type].propertyFlags & properties) == properties;
  };
  while (info.memoryTypeIndex < has.memoryTypeCount && !fits(info.memoryTypeIndex)) ++info.memoryTypeIndex;
  VkDeviceMemory memory = VK_NULL_HANDLE;
  must(vkAllocateMemory(device_, &info, nullptr, &memory));
  return memory;
}

MinimalImage MinimalDevice::makeImage(std::uint32_t width, std::uint32_t height, VkFormat format,
                                      VkImageUsageFlags usage) const {
  MinimalImage made{width, height};
  auto info = typed<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
  info.imageType = VK_IMAGE_TYPE_2D;
  info.format = format;
  info.extent = {made.width, made.height, 1};
  info.mipLevels = info.arrayLayers = 1;
  info.samples = VK_SAMPLE_COUNT_1_BIT;
  info.usage = usage;
  must(vkCreateImage(device_, &info, nullptr, &made.image));
  VkMemoryRequirements needs{};
  vkGetImageMemoryRequirements(device_, made.image, &needs);
  made.memory = allocate(needs, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
  must(vkBindImageMemory(device_, made.image, made.memory, 0));
  auto view = typed<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
  view.image = made.image;
  view.viewType = VK_IMAGE_VIEW_TYPE_2D;
  view.format = format;
  view.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  must(vkCreateImageView(device_, &view, nullptr, &made.view));
  return made;
}

VkShaderModule MinimalDevice::makeModule(std::span<const std::uint32_t> code) const {
  auto info = typed<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
  info.codeSize = code.size_bytes();
  info.pCode = code.data();
  VkShaderModule module = VK_NULL_HANDLE;
  must(vkCreateShaderModule(device_, &info, nullptr, &module));
  return module;
}

MinimalDevice::~MinimalDevice() {
  wait();
  vkDestroyFence(device_, done_, nullptr);
  vkDestroyCommandPool(device_, pool_, nullptr);
  vkDestroyDevice(device_, nullptr);
  vkDestroyInstance(instance_, nullptr);
}

float MinimalDevice::timestampPeriod() const {
  VkPhysicalDeviceProperties properties{};
  vkGetPhysicalDeviceProperties(physical_, &properties);
  return properties.limits.timestampPeriod;
}

void MinimalDevice::destroy(const MinimalImage& image) const {
  vkDestroyImageView(device_, image.view, nullptr);
  vkDestroyImage(device_, image.image, nullptr);
  vkFreeMemory(device_, image.memory, nullptr);
}

VkCommandBuffer MinimalDevice::begin() {
  wait();
  must(vkResetFences(device_, 1, &done_));
  must(vkResetCommandPool(device_, pool_, 0));
  auto info = typed<VkCommandBufferBeginInfo>(VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO);
  info.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
  must(vkBeginCommandBuffer(commands_, &info));
  return commands_;
}

void MinimalDevice::barrier(VkImage image, VkImageLayout from, VkImageLayout to, VkPipelineStageFlags before,
                            VkAccessFlags written, VkPipelineStageFlags after, VkAccessFlags read) const {
  auto made = typed<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  made.srcAccessMask = written;
  made.dstAccessMask = read;
  made.oldLayout = from;
  made.newLayout = to;
  made.srcQueueFamilyIndex = made.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  made.image = image;
  made.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  vkCmdPipelineBarrier(commands_, before, after, 0, 0, nullptr, 0, nullptr, 1, &made);
}

void MinimalDevice::send() {
  must(vkEndCommandBuffer(commands_));
  auto info = typed<VkSubmitInfo>(VK_STRUCTURE_TYPE_SUBMIT_INFO);
  info.commandBufferCount = 1;
  info.pCommandBuffers = &commands_;
  must(vkQueueSubmit(queue_, 1, &info, done_));
}

void MinimalDevice::wait() const { must(vkWaitForFences(device_, 1, &done_, VK_TRUE, ~std::uint64_t{})); }

}  // namespace QelUtilVideo
