#include "platform/linux/vulkan/XcbSurface.h"

#include "platform/linux/core/NoPipeSignal.h"

#include <algorithm>
#include <vector>

namespace QelUtilVideo {

std::shared_ptr<const XcbSurface> XcbSurface::make(std::shared_ptr<Gpu> gpu,
                                                   std::shared_ptr<const PrivateConnection> connection,
                                                   std::uint32_t window) {
  if (!gpu->canShow() || !connection->sizeOf(window)) return nullptr;
  const NoPipeSignal noSignal;
  auto info = vulkanStruct<VkXcbSurfaceCreateInfoKHR>(VK_STRUCTURE_TYPE_XCB_SURFACE_CREATE_INFO_KHR);
  info.connection = connection->get();
  info.window = window;
  VkSurfaceKHR surface = VK_NULL_HANDLE;
  if (!gpu->check(vkCreateXcbSurfaceKHR(gpu->instance(), &info, nullptr, &surface),
                  "vkCreateXcbSurfaceKHR")) {
    return nullptr;
  }
  const std::shared_ptr<const XcbSurface> made(
      new XcbSurface(std::move(gpu), std::move(connection), surface));
  return made->isUsable() ? made : nullptr;
}

XcbSurface::~XcbSurface() { vkDestroySurfaceKHR(gpu_->instance(), surface_, nullptr); }

bool XcbSurface::isUsable() const {
  VkPhysicalDevice device = gpu_->physicalDevice();
  VkBool32 isSupported = VK_FALSE;
  vkGetPhysicalDeviceSurfaceSupportKHR(device, gpu_->queueFamily(), surface_, &isSupported);
  std::uint32_t count = 0;
  vkGetPhysicalDeviceSurfaceFormatsKHR(device, surface_, &count, nullptr);
  std::vector<VkSurfaceFormatKHR> formats(count);
  vkGetPhysicalDeviceSurfaceFormatsKHR(device, surface_, &count, formats.data());
  const auto isOurs = [](const auto& each) { return each.format == VK_FORMAT_B8G8R8A8_UNORM; };
  return isSupported && std::ranges::any_of(formats, isOurs);
}

}  // namespace QelUtilVideo
