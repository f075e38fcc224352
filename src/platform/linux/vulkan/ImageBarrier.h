#pragma once

#include "platform/linux/vulkan/Gpu.h"

namespace QelUtilVideo {

/// How an image is used by some commands.
struct ImageUse {
  VkImageLayout layout = VK_IMAGE_LAYOUT_UNDEFINED;
  VkPipelineStageFlags stages = 0;
  VkAccessFlags access = 0;
};

/// Commands from here on may use the image in the second way, once those before are done with the first.
inline void imageBarrier(VkCommandBuffer commands, VkImage image, const ImageUse& before,
                         const ImageUse& after) {
  auto barrier = vulkanStruct<VkImageMemoryBarrier>(VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER);
  barrier.srcAccessMask = before.access;
  barrier.dstAccessMask = after.access;
  barrier.oldLayout = before.layout;
  barrier.newLayout = after.layout;
  barrier.srcQueueFamilyIndex = barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
  barrier.image = image;
  barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
  vkCmdPipelineBarrier(commands, before.stages, after.stages, 0, 0, nullptr, 0, nullptr, 1, &barrier);
}

}  // namespace QelUtilVideo
