#include "platform/linux/vulkan/OffscreenDrawables.h"

#include "platform/linux/vulkan/GpuDrawable.h"

#include <utility>

namespace QelUtilVideo {

class OffscreenDrawables::Drawable final : public GpuDrawable {
 public:
  Drawable(std::shared_ptr<GpuTexture> picture, std::shared_ptr<DrawnPictures> pictures)
      : picture_(std::move(picture)), pictures_(std::move(pictures)) {}
  [[nodiscard]] std::shared_ptr<MTLTexture> texture() const override { return picture_; }
  void present(Submission&) override {}

 protected:
  void show(Submission& submission) override { pictures_->show(picture_, submission); }

 private:
  const std::shared_ptr<GpuTexture> picture_;
  const std::shared_ptr<DrawnPictures> pictures_;
};

OffscreenDrawables::OffscreenDrawables(std::shared_ptr<Gpu> gpu)
    : pictures_(std::make_shared<DrawnPictures>(std::move(gpu))) {}

std::shared_ptr<CAMetalDrawable> OffscreenDrawables::nextDrawable(std::size_t width, std::size_t height) {
  auto picture = pictures_->take(width, height);
  if (!picture) return nullptr;
  return std::make_shared<Drawable>(std::move(picture), pictures_);
}

}  // namespace QelUtilVideo
