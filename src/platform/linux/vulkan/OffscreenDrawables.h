#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/DrawnPictures.h"

#include <memory>

namespace QelUtilVideo {

/// Drawables that no display shows.
class OffscreenDrawables final : public MetalSurface {
 public:
  explicit OffscreenDrawables(std::shared_ptr<Gpu> gpu);

  std::shared_ptr<CAMetalDrawable> nextDrawable(std::size_t width, std::size_t height) override;
  [[nodiscard]] bool isUsable() const override { return !pictures_->gpu()->isLost(); }
  [[nodiscard]] CGImageRef contents() override { return pictures_->contents(); }

 private:
  class Drawable;

  const std::shared_ptr<DrawnPictures> pictures_;
};

}  // namespace QelUtilVideo
