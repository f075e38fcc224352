#pragma once

#include "platform/linux/core/CameraPicture.h"
#include "platform/linux/media/JpegDecoder.h"

#include <QelUtilVideo/platform/CVPixelBufferPool.h>
#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace QelUtilVideo {

/// Makes frames of a camera's pictures, bi-planar 4:2:0 in video range, each with one conversion. One thread
/// at a time.
class CameraFrameMaker {
 public:
  /// Null when the picture is damaged: a side is 0 or above 16,384, a plane has fewer bytes than its rows
  /// need, a JPEG file is broken; or when there is no memory.
  [[nodiscard]] CVPixelBufferRef make(const CameraPicture& picture);

 private:
  [[nodiscard]] CVPixelBufferRef newFrame(std::size_t width, std::size_t height);
  [[nodiscard]] CVPixelBufferRef convertPacked(const CameraPicture& picture, OSType format);
  [[nodiscard]] CVPixelBufferRef convertPlanes(const CameraPicture& picture);
  [[nodiscard]] CVPixelBufferRef convertColours(const CameraPicture& picture);
  [[nodiscard]] CVPixelBufferRef convert(const CameraPicture& picture);

  PixelBufferConverter converter_;
  JpegDecoder jpeg_;
  std::shared_ptr<CVPixelBufferPool> pool_;
  std::vector<std::uint8_t> strip_;
};

}  // namespace QelUtilVideo
