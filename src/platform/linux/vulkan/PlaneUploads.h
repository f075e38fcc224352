#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/vulkan/GpuMemory.h"
#include "platform/linux/vulkan/HostImports.h"
#include "platform/linux/vulkan/Spares.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <memory>
#include <optional>

namespace QelUtilVideo {

/// Where the graphics processor takes the bytes of planes from: where they lie if it can, else from a copy.
/// One thread at a time, except where said.
class PlaneUploads {
 public:
  explicit PlaneUploads(std::shared_ptr<Gpu> gpu);

  /// What brings a plane of a bi-planar picture, of one byte per pixel and number of the plane, into a
  /// texture of its size; absent when there is no memory. Bytes that are read in place keep the picture until
  /// the processor has them.
  [[nodiscard]] std::optional<GpuTexture::Upload> prepare(const CVPixelBufferRef& picture, std::size_t plane);
  /// Lets memory go that nothing is copied from now. Any thread.
  void dropSpares();

 private:
  [[nodiscard]] std::optional<GpuTexture::Upload> inPlace(const CVPixelBufferRef& picture, std::size_t plane);
  [[nodiscard]] std::optional<GpuTexture::Upload> copied(CVPixelBuffer& picture, std::size_t plane);
  [[nodiscard]] std::shared_ptr<GpuBuffer> room(std::size_t size);

  const std::shared_ptr<Gpu> gpu_;
  const std::shared_ptr<HostImports> imports_;
  Synchronised<Spares<GpuBuffer>> staging_;
};

}  // namespace QelUtilVideo
