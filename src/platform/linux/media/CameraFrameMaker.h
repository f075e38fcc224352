#pragma once

#include "platform/linux/core/CameraPicture.h"
#include "platform/linux/media/JpegDecoder.h"

#include <QelUtilVideo/platform/CVPixelBufferPool.h>

#include <cstddef>
#include <memory>

namespace QelUtilVideo {

/// Makes frames of a camera's pictures, bi-planar 4:2:0 in video range, each with one conversion. It serves
/// one stream: it keeps memory for the size that it saw last. One thread at a time.
class CameraFrameMaker {
 public:
  /// A frame of the picture's size, or of the JPEG's own where that differs. The bytes are read during the
  /// call only, none beyond a plane's `size`. Null when the picture is damaged (a side of 0 or above 16,384,
  /// a stride shorter than the row, fewer bytes than the rows need, a broken JPEG), or when there is no
  /// memory.
  [[nodiscard]] CVPixelBufferRef make(const CameraPicture& picture);

 private:
  [[nodiscard]] CVPixelBufferRef newFrame(std::size_t width, std::size_t height);

  std::shared_ptr<CVPixelBufferPool> pool_;
  JpegDecoder jpeg_;
};

}  // namespace QelUtilVideo
