#include "platform/linux/vulkan/Swapchain.h"

#include "platform/linux/core/NoPipeSignal.h"
#include "platform/linux/vulkan/ImageBarrier.h"

#include <algorithm>
#include <array>
#include <utility>

namespace QelUtilVideo {

namespace {

VkPresentModeKHR choosePresentMode(VkPhysicalDevice device, VkSurfaceKHR surface) {
  std::uint32_t count = 0;
  vkGetPhysicalDeviceSurfacePresentModesKHR(device, surface, &count, nullptr);
  std::vector<VkPresentModeKHR> modes(count);
  vkGetPhysicalDeviceSurfacePresentModesKHR(device, surface, &count, modes.data());
  const bool hasMailbox = std::ranges::find(modes, VK_PRESENT_MODE_MAILBOX_KHR) != modes.end();
  return hasMailbox ? VK_PRESENT_MODE_MAILBOX_KHR : VK_PRESENT_MODE_FIFO_KHR;
}

}  // namespace

std::shared_ptr<Swapchain> Swapchain::make(std::shared_ptr<const XcbSurface> surface,
                                           const VkSurfaceCapabilitiesKHR& capabilities,
                                           const Swapchain* before) {
  if (!(capabilities.supportedUsageFlags & VK_IMAGE_USAGE_TRANSFER_DST_BIT)) return nullptr;
  auto info = vulkanStruct<VkSwapchainCreateInfoKHR>(VK_STRUCTURE_TYPE_SWAPCHAIN_CREATE_INFO_KHR);
  const Gpu& gpu = *surface->gpu();
  info.surface = surface->get();
  info.minImageCount = std::max(3U, capabilities.minImageCount);
  if (capabilities.maxImageCount > 0) {
    info.minImageCount = std::min(info.minImageCount, capabilities.maxImageCount);
  }
  info.imageFormat = VK_FORMAT_B8G8R8A8_UNORM;
  info.imageColorSpace = VK_COLOR_SPACE_SRGB_NONLINEAR_KHR;
  info.imageExtent = capabilities.currentExtent;
  info.imageArrayLayers = 1;
  info.imageUsage = VK_IMAGE_USAGE_TRANSFER_DST_BIT;
  info.preTransform = capabilities.currentTransform;
  const bool canBeOpaque = (capabilities.supportedCompositeAlpha & VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR) != 0;
  info.compositeAlpha = canBeOpaque ? VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR : VK_COMPOSITE_ALPHA_INHERIT_BIT_KHR;
  info.presentMode = choosePresentMode(gpu.physicalDevice(), surface->get());
  info.clipped = VK_TRUE;
  info.oldSwapchain = before ? before->swapchain_.get() : VK_NULL_HANDLE;
  // Threads of the driver's, which write to the server too, are born with the signal blocked.
  const NoPipeSignal noSignal;
  VkSwapchainKHR swapchain = VK_NULL_HANDLE;
  if (vkCreateSwapchainKHR(gpu.device(), &info, nullptr, &swapchain) != VK_SUCCESS) return nullptr;
  std::shared_ptr<Swapchain> made(new Swapchain(std::move(surface), info.imageExtent));
  made->swapchain_ = {made->gpu_->device(), swapchain, vkDestroySwapchainKHR};
  return made->makeImages() ? made : nullptr;
}

Swapchain::~Swapchain() {
  const NoPipeSignal noSignal;
  swapchain_ = {};
}

bool Swapchain::makeImages() {
  std::uint32_t count = 0;
  vkGetSwapchainImagesKHR(gpu_->device(), swapchain_.get(), &count, nullptr);
  std::vector<VkImage> images(count);
  if (vkGetSwapchainImagesKHR(gpu_->device(), swapchain_.get(), &count, images.data()) != VK_SUCCESS)
    return false;
  for (const VkImage image : images) {
    Image made{image, makeSemaphore(), makeSemaphore(), false};
    if (!made.isAcquired || !made.isDrawn) return false;
    images_.push_back(std::move(made));
  }
  nextSemaphore_ = makeSemaphore();
  return static_cast<bool>(nextSemaphore_);
}

VulkanHandle<VkSemaphore> Swapchain::makeSemaphore() const {
  auto info = vulkanStruct<VkSemaphoreCreateInfo>(VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO);
  VkSemaphore semaphore = VK_NULL_HANDLE;
  if (!gpu_->check(vkCreateSemaphore(gpu_->device(), &info, nullptr, &semaphore), "vkCreateSemaphore"))
    return {};
  return {gpu_->device(), semaphore, vkDestroySemaphore};
}

bool Swapchain::acquire() {
  if (acquired_) return true;
  const NoPipeSignal noSignal;
  std::uint32_t index = 0;
  const VkResult result = vkAcquireNextImageKHR(gpu_->device(), swapchain_.get(), 0, nextSemaphore_.get(),
                                                VK_NULL_HANDLE, &index);
  if (result == VK_SUCCESS || result == VK_SUBOPTIMAL_KHR) {
    acquired_ = index;
    // The picture's own semaphore is free: what waited for it was done before the picture came back.
    std::swap(nextSemaphore_, images_[index].isAcquired);
    hasComeRound_ = hasComeRound_ || images_[index].wasPresented;
  }
  if (result == VK_ERROR_DEVICE_LOST) (void)gpu_->check(result, "vkAcquireNextImageKHR");
  isStale_ = isStale_ || result == VK_SUBOPTIMAL_KHR || result == VK_ERROR_OUT_OF_DATE_KHR;
  isLost_ = isLost_ || result == VK_ERROR_SURFACE_LOST_KHR;
  return acquired_.has_value();
}

void Swapchain::show(const GpuTexture& picture, Submission& submission) {
  if (!acquired_) return;
  const std::uint32_t index = *std::exchange(acquired_, std::nullopt);
  const Image& image = images_[index];
  copy(picture, image.image, submission.commands());
  submission.order(image.isAcquired.get(), image.isDrawn.get());
  submission.keep(shared_from_this());
  submission.whenSent([this, index] { present(index); });
  // Until it was sent and shown.
  isStale_ = true;
}

void Swapchain::copy(const GpuTexture& picture, VkImage image, VkCommandBuffer commands) const {
  const auto width = static_cast<std::int32_t>(picture.width()),
             height = static_cast<std::int32_t>(picture.height());
  const auto shownWidth = static_cast<std::int32_t>(size_.width),
             shownHeight = static_cast<std::int32_t>(size_.height);
  constexpr VkImageSubresourceLayers layers{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  imageBarrier(
      commands, image, {VK_IMAGE_LAYOUT_UNDEFINED, VK_PIPELINE_STAGE_TRANSFER_BIT, 0},
      {VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT});
  if (width == shownWidth && height == shownHeight) {
    VkImageCopy region{};
    region.srcSubresource = region.dstSubresource = layers;
    region.extent = {size_.width, size_.height, 1};
    vkCmdCopyImage(commands, picture.image(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, image,
                   VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &region);
  } else {
    VkImageBlit region{};
    region.srcSubresource = region.dstSubresource = layers;
    region.srcOffsets[1] = {width, height, 1};
    region.dstOffsets[1] = {shownWidth, shownHeight, 1};
    vkCmdBlitImage(commands, picture.image(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, image,
                   VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &region, VK_FILTER_LINEAR);
  }
  imageBarrier(
      commands, image,
      {VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT, VK_ACCESS_TRANSFER_WRITE_BIT},
      {VK_IMAGE_LAYOUT_PRESENT_SRC_KHR, VK_PIPELINE_STAGE_BOTTOM_OF_PIPE_BIT, 0});
}

void Swapchain::present(std::uint32_t index) {
  const NoPipeSignal noSignal;
  const VkSemaphore isDrawn = images_[index].isDrawn.get();
  const VkSwapchainKHR swapchain = swapchain_.get();
  auto info = vulkanStruct<VkPresentInfoKHR>(VK_STRUCTURE_TYPE_PRESENT_INFO_KHR);
  info.waitSemaphoreCount = 1;
  info.pWaitSemaphores = &isDrawn;
  info.swapchainCount = 1;
  info.pSwapchains = &swapchain;
  info.pImageIndices = &index;
  const VkResult result = gpu_->present(info);
  images_[index].wasPresented = true;
  isStale_ = result != VK_SUCCESS;
  isLost_ = isLost_ || result == VK_ERROR_SURFACE_LOST_KHR;
  if (result == VK_ERROR_DEVICE_LOST) (void)gpu_->check(result, "vkQueuePresentKHR");
}

}  // namespace QelUtilVideo
