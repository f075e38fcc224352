#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/GpuCommands.h"

#include <memory>

namespace QelUtilVideo {

/// Drawables that no display shows; the last one presented can be read.
class OffscreenDrawables final : public MetalSurface {
 public:
  explicit OffscreenDrawables(std::shared_ptr<Gpu> gpu);
  ~OffscreenDrawables() override;

  std::shared_ptr<CAMetalDrawable> nextDrawable(std::size_t width, std::size_t height) override;
  void presentAgain() override {}
  CGImageRef contents() override;

 private:
  class Drawable;
  struct Shown;

  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<Shown> shown_;
};

}  // namespace QelUtilVideo
