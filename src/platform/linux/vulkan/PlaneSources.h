#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/vulkan/GpuBuffer.h"
#include "platform/linux/vulkan/GpuTexture.h"
#include "platform/linux/vulkan/HostImports.h"
#include "platform/linux/vulkan/Spares.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <memory>
#include <optional>

namespace QelUtilVideo {

/// Where the graphics processor takes the bytes of planes from: where they lie if it can, else from a copy.
/// One thread at a time, except where said.
class PlaneSources {
 public:
  explicit PlaneSources(std::shared_ptr<Gpu> gpu);

  /// Of a plane of a bi-planar picture, whose pixels have one byte in plane 0 and two in plane 1; absent when
  /// there is no memory. Bytes that are read in place keep the picture until the processor has them.
  [[nodiscard]] std::optional<GpuTexture::Source> of(const CVPixelBufferRef& picture, std::size_t plane);
  /// Lets memory go that nothing is copied from now. Any thread.
  void dropSpares();

 private:
  [[nodiscard]] std::optional<GpuTexture::Source> inPlace(const CVPixelBufferRef& picture, std::size_t plane);
  [[nodiscard]] std::optional<GpuTexture::Source> copied(CVPixelBuffer& picture, std::size_t plane);
  [[nodiscard]] std::shared_ptr<GpuBuffer> room(std::size_t size);

  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<HostImports> imports_;
  Synchronised<Spares<GpuBuffer>> staging_;
};

}  // namespace QelUtilVideo
