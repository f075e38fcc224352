#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/vulkan/GpuTexture.h"
#include "platform/linux/vulkan/PlaneSources.h"
#include "platform/linux/vulkan/Spares.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <memory>

namespace QelUtilVideo {

/// The planes of pictures that are being shown, as textures that all views of a graphics processor share:
/// what one has uploaded another finds. It has few textures more than are in use, and no pictures. One thread
/// at a time, except where said.
class GpuPlanes {
 public:
  explicit GpuPlanes(std::shared_ptr<Gpu> gpu);

  /// Plane 0 or 1 of a bi-planar picture as it is now: the same texture for as long as somebody holds it and
  /// nobody writes to the picture. Null when there is no memory or the processor is lost.
  [[nodiscard]] std::shared_ptr<GpuTexture> texture(const CVPixelBufferRef& picture, std::size_t plane);
  /// Lets go what nobody uses now. Any thread.
  void dropSpares();
  [[nodiscard]] const GpuCounters& counters() const { return gpu_->counters(); }

 private:
  [[nodiscard]] std::shared_ptr<GpuTexture> room(const PixelPlane& plane, MTLPixelFormat format);

  const std::shared_ptr<Gpu> gpu_;
  PlaneSources sources_;
  Synchronised<Spares<GpuTexture>> textures_;
};

}  // namespace QelUtilVideo
