#include "platform/linux/vulkan/PlaneSources.h"

#include "platform/PixelMemory.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace QelUtilVideo {

namespace {

/// What bytes that are read in place need until they have been.
struct InPlace {
  CVPixelBufferRef picture;
  std::shared_ptr<HostImports> imports;
};

std::size_t bytesPerPixel(std::size_t plane) { return plane + 1; }

}  // namespace

PlaneSources::PlaneSources(std::shared_ptr<Gpu> gpu)
    : gpu_(std::move(gpu)), imports_(std::make_shared<HostImports>(gpu_)) {}

std::optional<GpuTexture::Source> PlaneSources::of(const CVPixelBufferRef& picture, std::size_t plane) {
  auto source = inPlace(picture, plane);
  return source ? source : copied(*picture, plane);
}

void PlaneSources::dropSpares() {
  const auto dropped = staging_.with([](auto& staging) { return staging.age(0); });
}

std::optional<GpuTexture::Source> PlaneSources::inPlace(const CVPixelBufferRef& picture, std::size_t plane) {
  const auto memory = PixelMemory::of(*picture);
  const VkBuffer buffer = memory ? imports_->bufferOver(memory) : VkBuffer{VK_NULL_HANDLE};
  if (buffer == VK_NULL_HANDLE) return std::nullopt;
  const PixelPlane& rows = picture->planes()[plane];
  GpuTexture::Source source;
  source.bytes = buffer;
  source.offset = static_cast<VkDeviceSize>(rows.baseAddress - memory->bytes());
  source.rowPixels = static_cast<std::uint32_t>(rows.bytesPerRow / bytesPerPixel(plane));
  source.owner = std::make_shared<InPlace>(InPlace{picture, imports_});
  return source;
}

std::optional<GpuTexture::Source> PlaneSources::copied(CVPixelBuffer& picture, std::size_t plane) {
  const PixelPlane& rows = picture.planes()[plane];
  const std::size_t rowBytes = rows.width * bytesPerPixel(plane);
  auto staging = room(rowBytes * rows.height);
  if (!staging) return std::nullopt;
  (void)CVPixelBufferLockBaseAddress(picture, kCVPixelBufferLock_ReadOnly);
  for (std::size_t y = 0; y < rows.height; ++y) {
    std::memcpy(staging->bytes() + y * rowBytes, rows.baseAddress + y * rows.bytesPerRow, rowBytes);
  }
  (void)CVPixelBufferUnlockBaseAddress(picture, kCVPixelBufferLock_ReadOnly);
  gpu_->counters().bytesCopied += rowBytes * rows.height;
  GpuTexture::Source source;
  source.bytes = staging->buffer();
  source.rowPixels = static_cast<std::uint32_t>(rows.width);
  source.owner = std::move(staging);
  return source;
}

std::shared_ptr<GpuBuffer> PlaneSources::room(std::size_t size) {
  // Not the memory of a far larger picture, which is to go.
  const auto fits = [&](const GpuBuffer& each) { return each.length() >= size && each.length() / 2 <= size; };
  return takeOrMake(staging_, fits, [&] {
    ++gpu_->counters().allocations;
    return GpuBuffer::make(gpu_, size, VK_BUFFER_USAGE_TRANSFER_SRC_BIT);
  });
}

}  // namespace QelUtilVideo
