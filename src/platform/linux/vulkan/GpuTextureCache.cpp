#include "platform/linux/vulkan/GpuTextureCache.h"

#include <new>
#include <utility>

namespace QelUtilVideo {

namespace {

class Wrapper final : public CVMetalTexture {
 public:
  Wrapper(CVPixelBufferRef picture, std::shared_ptr<MTLTexture> texture)
      : picture_(std::move(picture)), texture_(std::move(texture)) {}
  [[nodiscard]] std::shared_ptr<MTLTexture> CVMetalTextureGetTexture() const override { return texture_; }

 private:
  const CVPixelBufferRef picture_;
  const std::shared_ptr<MTLTexture> texture_;
};

}  // namespace

GpuTextureCache::~GpuTextureCache() {
  given_ = {};
  if (planes_) planes_->dropSpares();
}

CVReturn GpuTextureCache::CVMetalTextureCacheCreateTextureFromImage(
    const CVPixelBufferRef& image, MTLPixelFormat format, std::size_t width, std::size_t height,
    std::size_t plane, std::unique_ptr<CVMetalTexture>& texture) try {
  const bool isBiPlanar = image && CVPixelBufferGetPlaneCount(*image) == 2 && plane < 2;
  if (!isBiPlanar || format != (plane == 0 ? MTLPixelFormat::r8Unorm : MTLPixelFormat::rg8Unorm)) {
    return kCVReturnInvalidPixelFormat;
  }
  const PixelPlane& rows = image->planes()[plane];
  if (rows.width != width || rows.height != height) return kCVReturnInvalidSize;
  if (planes_ != gpu_->planes()) {
    given_ = {};
    planes_ = gpu_->planes();
  }
  given_[plane] = planes_->texture(image, plane);
  if (!given_[plane]) return kCVReturnAllocationFailed;
  texture = std::make_unique<Wrapper>(image, given_[plane]);
  return kCVReturnSuccess;
} catch (const std::bad_alloc&) {
  return kCVReturnAllocationFailed;
}

}  // namespace QelUtilVideo
