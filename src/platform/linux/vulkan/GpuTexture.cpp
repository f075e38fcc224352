#include "platform/linux/vulkan/GpuTexture.h"

namespace QelUtilVideo {

namespace {

VkFormat formatOf(MTLPixelFormat format, VkImageUsageFlags usage) {
  switch (format) {
    case MTLPixelFormat::r8Unorm:
      return VK_FORMAT_R8_UNORM;
    case MTLPixelFormat::rg8Unorm:
      return VK_FORMAT_R8G8_UNORM;
    case MTLPixelFormat::r32Float:
      return VK_FORMAT_R32_SFLOAT;
    case MTLPixelFormat::rgba16Float:
      return VK_FORMAT_R16G16B16A16_SFLOAT;
    case MTLPixelFormat::bgra8Unorm:
      break;
  }
  // Kernels need not be able to write the other order, and nobody sees which one it is.
  const bool isStorage = (usage & VK_IMAGE_USAGE_STORAGE_BIT) != 0;
  return isStorage ? VK_FORMAT_R8G8B8A8_UNORM : VK_FORMAT_B8G8R8A8_UNORM;
}

}  // namespace

std::size_t bytesPerPixel(MTLPixelFormat format) {
  switch (format) {
    case MTLPixelFormat::r8Unorm:
      return 1;
    case MTLPixelFormat::rg8Unorm:
      return 2;
    case MTLPixelFormat::rgba16Float:
      return 8;
    case MTLPixelFormat::r32Float:
    case MTLPixelFormat::bgra8Unorm:
      break;
  }
  return 4;
}

std::shared_ptr<GpuTexture> GpuTexture::make(std::shared_ptr<Gpu> gpu, std::size_t width, std::size_t height,
                                             MTLPixelFormat format, VkImageUsageFlags usage) {
  const std::size_t mostSide = gpu->properties().limits.maxImageDimension2D;
  if (width == 0 || height == 0 || width > mostSide || height > mostSide) return nullptr;
  std::shared_ptr<GpuTexture> made(new GpuTexture(std::move(gpu), width, height, format));
  made->isWritable_ = (usage & VK_IMAGE_USAGE_STORAGE_BIT) != 0;
  return made->allocate(usage) ? made : nullptr;
}

bool GpuTexture::allocate(VkImageUsageFlags usage) {
  auto info = vulkanStruct<VkImageCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO);
  info.imageType = VK_IMAGE_TYPE_2D;
  info.format = formatOf(format_, usage);
  info.extent = {static_cast<std::uint32_t>(width_), static_cast<std::uint32_t>(height_), 1};
  info.mipLevels = info.arrayLayers = 1;
  info.samples = VK_SAMPLE_COUNT_1_BIT;
  info.tiling = VK_IMAGE_TILING_OPTIMAL;
  info.usage = usage;
  VkDevice device = gpu_->device();
  VkImage image = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateImage(device, &info, nullptr, &image), "vkCreateImage")) return false;
  image_ = {device, image, vkDestroyImage};
  VkMemoryRequirements needs{};
  vkGetImageMemoryRequirements(device, image, &needs);
  memory_ = gpu_->allocate(needs, VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT);
  if (!memory_ || !gpu_->check(vkBindImageMemory(device, image, memory_.get(), 0), "vkBindImageMemory"))
    return false;

  auto views = vulkanStruct<VkImageViewCreateInfo>(VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO);
  views.image = image;
  views.viewType = VK_IMAGE_VIEW_TYPE_2D;
  views.format = info.format;
  views.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  VkImageView view = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateImageView(device, &views, nullptr, &view), "vkCreateImageView")) return false;
  view_ = {device, view, vkDestroyImageView};
  if (!(usage & VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT)) return true;

  auto frames = vulkanStruct<VkFramebufferCreateInfo>(VK_STRUCTURE_TYPE_FRAMEBUFFER_CREATE_INFO);
  frames.renderPass = gpu_->renderPass();
  frames.attachmentCount = 1;
  frames.pAttachments = &view;
  frames.width = info.extent.width;
  frames.height = info.extent.height;
  frames.layers = 1;
  VkFramebuffer framebuffer = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateFramebuffer(device, &frames, nullptr, &framebuffer), "vkCreateFramebuffer"))
    return false;
  framebuffer_ = {device, framebuffer, vkDestroyFramebuffer};
  return true;
}

}  // namespace QelUtilVideo
