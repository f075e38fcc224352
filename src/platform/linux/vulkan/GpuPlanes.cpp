#include "platform/linux/vulkan/GpuPlanes.h"

#include <utility>

namespace QelUtilVideo {

GpuPlanes::GpuPlanes(std::shared_ptr<Gpu> gpu) : gpu_(std::move(gpu)), sources_(gpu_) {}

std::shared_ptr<GpuTexture> GpuPlanes::texture(const CVPixelBufferRef& picture, std::size_t plane) {
  if (gpu_->isLost()) return nullptr;
  // Before the bytes are read: what is written meanwhile makes it another picture.
  const GpuTexture::Contents contents{picture->writeGeneration(), plane};
  auto found = textures_.with([&](const auto& textures) {
    return textures.find([&](const GpuTexture& each) { return each.contents() == contents; });
  });
  if (found) return found;
  auto source = sources_.of(picture, plane);
  const auto format = plane == 0 ? MTLPixelFormat::r8Unorm : MTLPixelFormat::rg8Unorm;
  auto made = source ? room(picture->planes()[plane], format) : nullptr;
  if (made) made->setContents(contents, std::move(*source));
  return made;
}

void GpuPlanes::dropSpares() {
  const auto dropped = textures_.with([](auto& textures) { return textures.age(0); });
  sources_.dropSpares();
}

std::shared_ptr<GpuTexture> GpuPlanes::room(const PixelPlane& plane, MTLPixelFormat format) {
  const auto fits = [&](const GpuTexture& each) {
    return each.width() == plane.width && each.height() == plane.height && each.pixelFormat() == format;
  };
  return takeOrMake(textures_, fits, [&] {
    ++gpu_->counters().allocations;
    return GpuTexture::make(gpu_, plane.width, plane.height, format,
                            VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT);
  });
}

}  // namespace QelUtilVideo
