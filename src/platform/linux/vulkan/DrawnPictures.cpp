#include "platform/linux/vulkan/DrawnPictures.h"

#include "platform/Images.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Frames that the processor works at.
constexpr std::size_t kMostUnderWay = 2;

}  // namespace

std::shared_ptr<GpuTexture> DrawnPictures::take(std::size_t width, std::size_t height) {
  if (gpu_->isLost() || isBusy()) return nullptr;
  std::erase_if(pictures_, [&](const auto& picture) {
    return picture->width() != width || picture->height() != height;
  });
  const auto free =
      std::ranges::find_if(pictures_, [](const auto& picture) { return picture.use_count() == 1; });
  if (free != pictures_.end()) return *free;
  auto picture = GpuTexture::make(gpu_, width, height, MTLPixelFormat::bgra8Unorm,
                                  VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
  if (picture) pictures_.push_back(picture);
  return picture;
}

bool DrawnPictures::isBusy() {
  std::erase_if(underWay_, [](const auto& weak) {
    const auto submission = weak.lock();
    return !submission || submission->isFree();
  });
  return underWay_.size() >= kMostUnderWay;
}

void DrawnPictures::show(std::shared_ptr<GpuTexture> picture, Submission& submission) {
  if (submission.gpu() != gpu_) return;
  shown_ = std::move(picture);
  const auto isSame = [&](const auto& weak) { return weak.lock().get() == &submission; };
  if (std::ranges::none_of(underWay_, isSame)) underWay_.push_back(submission.weak_from_this());
}

CGImageRef DrawnPictures::contents() const {
  const auto& picture = shown_;
  if (!picture || gpu_->isLost()) return nullptr;
  const std::size_t bytesPerRow = picture->width() * 4;
  const auto copy = GpuBuffer::make(gpu_, bytesPerRow * picture->height(), VK_BUFFER_USAGE_TRANSFER_DST_BIT);
  const auto submission = copy ? Submission::make(gpu_) : nullptr;
  if (!submission || !submission->begin()) return nullptr;
  VkBufferImageCopy region{};
  region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
  region.imageExtent = {static_cast<std::uint32_t>(picture->width()),
                        static_cast<std::uint32_t>(picture->height()), 1};
  vkCmdCopyImageToBuffer(submission->commands(), picture->image(), VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL,
                         copy->buffer(), 1, &region);
  auto barrier = vulkanStruct<VkMemoryBarrier>(VK_STRUCTURE_TYPE_MEMORY_BARRIER);
  barrier.srcAccessMask = VK_ACCESS_TRANSFER_WRITE_BIT;
  barrier.dstAccessMask = VK_ACCESS_HOST_READ_BIT;
  vkCmdPipelineBarrier(submission->commands(), VK_PIPELINE_STAGE_TRANSFER_BIT, VK_PIPELINE_STAGE_HOST_BIT, 0,
                       1, &barrier, 0, nullptr, 0, nullptr);
  if (!submission->send()) return nullptr;
  if (!submission->wait()) return nullptr;
  CGImageLayout layout;
  layout.width = picture->width();
  layout.height = picture->height();
  layout.bytesPerRow = bytesPerRow;
  layout.bitmapInfo = static_cast<std::uint32_t>(CGImageAlphaInfo::first) | kCGBitmapByteOrder32Little;
  auto bytes = makeHeapBytes(copy->length());
  if (!bytes) return nullptr;
  std::memcpy(bytes->data(), copy->bytes(), copy->length());
  return std::make_shared<CGImage>(layout, std::move(bytes));
}

}  // namespace QelUtilVideo
