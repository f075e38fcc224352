#include "platform/linux/vulkan/TextureUpload.h"

#include "platform/linux/vulkan/ImageBarrier.h"

#include <cstdint>

namespace QelUtilVideo {

void recordUpload(const std::shared_ptr<GpuTexture>& texture, Submission& submission) {
  const GpuTexture::Source* pending = texture->pendingSource();
  if (!pending || !submission.copiesInto(texture)) return;
  constexpr ImageUse copied{VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, VK_PIPELINE_STAGE_TRANSFER_BIT,
                            VK_ACCESS_TRANSFER_WRITE_BIT};
  constexpr ImageUse read{VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL,
                          VK_PIPELINE_STAGE_FRAGMENT_SHADER_BIT | VK_PIPELINE_STAGE_COMPUTE_SHADER_BIT,
                          VK_ACCESS_SHADER_READ_BIT};
  // Commands that were recorded earlier and sent first may have copied into it and read it.
  constexpr ImageUse before{VK_IMAGE_LAYOUT_UNDEFINED, copied.stages | read.stages, copied.access};
  VkCommandBuffer commands = submission.commands();
  imageBarrier(commands, texture->image(), before, copied);
  VkBufferImageCopy region{};
  region.bufferOffset = pending->offset;
  region.bufferRowLength = pending->rowPixels;
  region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.imageExtent = {static_cast<std::uint32_t>(texture->width()),
                        static_cast<std::uint32_t>(texture->height()), 1};
  vkCmdCopyBufferToImage(commands, pending->bytes, texture->image(), copied.layout, 1, &region);
  imageBarrier(commands, texture->image(), copied, read);
  submission.keep(texture);
  submission.keep(pending->owner);
  ++submission.gpu()->counters().uploads;
}

}  // namespace QelUtilVideo
