#include "platform/linux/vulkan/WindowDrawables.h"

#include "platform/linux/vulkan/GpuDrawable.h"

#include <utility>

namespace QelUtilVideo {

class WindowDrawables::Drawable final : public GpuDrawable {
 public:
  Drawable(std::shared_ptr<GpuTexture> picture, std::shared_ptr<DrawnPictures> pictures,
           std::shared_ptr<Swapchain> swapchain)
      : picture_(std::move(picture)), pictures_(std::move(pictures)), swapchain_(std::move(swapchain)) {}
  [[nodiscard]] std::shared_ptr<MTLTexture> texture() const override { return picture_; }
  void present(Submission& submission) override {
    if (submission.gpu() == picture_->gpu()) swapchain_->show(*picture_, submission);
  }

 protected:
  void show(Submission& submission) override { pictures_->show(picture_, submission); }

 private:
  const std::shared_ptr<GpuTexture> picture_;
  const std::shared_ptr<DrawnPictures> pictures_;
  const std::shared_ptr<Swapchain> swapchain_;
};

WindowDrawables::WindowDrawables(std::shared_ptr<const XcbSurface> surface)
    : pictures_(std::make_shared<DrawnPictures>(surface->gpu())), surface_(std::move(surface)) {}

WindowDrawables::~WindowDrawables() = default;

std::shared_ptr<CAMetalDrawable> WindowDrawables::nextDrawable(std::size_t width, std::size_t height) {
  auto picture = pictures_->take(width, height);
  auto swapchain = picture ? surface_.acquire(width, height) : nullptr;
  if (!swapchain) return nullptr;
  return std::make_shared<Drawable>(std::move(picture), pictures_, std::move(swapchain));
}

bool WindowDrawables::isUsable() const { return !pictures_->gpu()->isLost() && !surface_.isLost(); }

}  // namespace QelUtilVideo
