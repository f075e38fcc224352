#include "platform/linux/vulkan/OffscreenDrawables.h"

#include "platform/Images.h"

#include <cstring>
#include <utility>

namespace QelUtilVideo {

/// The picture presented last, until another one is.
struct OffscreenDrawables::Shown {
  std::shared_ptr<GpuTexture> picture;
};

class OffscreenDrawables::Drawable final : public GpuDrawable {
 public:
  Drawable(std::shared_ptr<GpuTexture> picture, std::shared_ptr<Shown> shown)
      : picture_(std::move(picture)), shown_(std::move(shown)) {}
  [[nodiscard]] std::shared_ptr<MTLTexture> texture() const override { return picture_; }
  void present(Submission&) override { shown_->picture = picture_; }

 private:
  const std::shared_ptr<GpuTexture> picture_;
  const std::shared_ptr<Shown> shown_;
};

OffscreenDrawables::OffscreenDrawables(std::shared_ptr<Gpu> gpu)
    : gpu_(std::move(gpu)), shown_(std::make_shared<Shown>()) {}

OffscreenDrawables::~OffscreenDrawables() = default;

std::shared_ptr<CAMetalDrawable> OffscreenDrawables::nextDrawable(std::size_t width, std::size_t height) {
  if (gpu_->isLost()) return nullptr;
  auto picture = GpuTexture::make(gpu_, width, height, MTLPixelFormat::bgra8Unorm,
                                  VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT | VK_IMAGE_USAGE_TRANSFER_SRC_BIT);
  if (!picture) return nullptr;
  return std::make_shared<Drawable>(std::move(picture), shown_);
}

CGImageRef OffscreenDrawables::contents() {
  const auto picture = shown_->picture;
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
  submission->wait();
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
