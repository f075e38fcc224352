#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/DrawnPictures.h"
#include "platform/linux/vulkan/WindowSurface.h"

#include <memory>

namespace QelUtilVideo {

/// Drawables of a window. They are drawn off screen and copied: so the last one can be read back, and one
/// that was begun when the window had another size is still shown whole.
class WindowDrawables final : public MetalSurface {
 public:
  explicit WindowDrawables(std::shared_ptr<const XcbSurface> surface);
  ~WindowDrawables() override;

  std::shared_ptr<CAMetalDrawable> nextDrawable(std::size_t width, std::size_t height) override;
  [[nodiscard]] bool isUsable() const override;
  [[nodiscard]] CGImageRef contents() override { return pictures_->contents(); }

 private:
  class Drawable;

  const std::shared_ptr<DrawnPictures> pictures_;
  WindowSurface surface_;
};

}  // namespace QelUtilVideo
