#include "platform/linux/vulkan/DeviceTexture.h"

#include "platform/linux/vulkan/GpuBuffer.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace QelUtilVideo {

void DeviceTexture::replaceRegion(const MTLRegion& region, std::size_t mipmapLevel,
                                  std::span<const std::byte> bytes, std::size_t bytesPerRow) {
  const std::size_t row = width() * bytesPerPixel(pixelFormat());
  const bool isAll = region.size == MTLSize{width(), height(), 1} && mipmapLevel == 0;
  if (!isAll || bytesPerRow < row || bytes.size() < (height() - 1) * bytesPerRow + row) return;
  bytes_.resize(height() * row);
  for (std::size_t y = 0; y < height(); ++y) {
    std::memcpy(bytes_.data() + y * row, bytes.data() + y * bytesPerRow, row);
  }
  isReplaced_ = true;
}

std::shared_ptr<GpuTexture> DeviceTexture::on(const std::shared_ptr<Gpu>& gpu) {
  if (!picture_ || picture_->gpu() != gpu) {
    VkImageUsageFlags usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    if (descriptor_.usage & MTLTextureUsageShaderWrite) usage |= VK_IMAGE_USAGE_STORAGE_BIT;
    picture_ = GpuTexture::make(gpu, width(), height(), pixelFormat(), usage);
    isReplaced_ = !bytes_.empty();
  }
  if (picture_ && isReplaced_ && !copyToStaging(gpu)) return nullptr;
  return picture_;
}

bool DeviceTexture::copyToStaging(const std::shared_ptr<Gpu>& gpu) {
  auto staging = GpuBuffer::make(gpu, bytes_.size(), VK_BUFFER_USAGE_TRANSFER_SRC_BIT);
  if (!staging) return false;
  std::memcpy(staging->bytes(), bytes_.data(), bytes_.size());
  GpuTexture::Source source;
  source.bytes = staging->buffer();
  source.rowPixels = static_cast<std::uint32_t>(width());
  source.owner = std::move(staging);
  picture_->setContents({}, std::move(source));
  isReplaced_ = false;
  return true;
}

std::shared_ptr<GpuTexture> textureOn(const std::shared_ptr<Gpu>& gpu,
                                      const std::shared_ptr<MTLTexture>& texture) {
  if (const auto any = std::dynamic_pointer_cast<DeviceTexture>(texture)) return any->on(gpu);
  auto own = std::dynamic_pointer_cast<GpuTexture>(texture);
  return own && own->gpu() == gpu ? own : nullptr;
}

}  // namespace QelUtilVideo
