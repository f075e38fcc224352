#pragma once

#include "platform/linux/v4l2/CameraBuffers.h"
#include "platform/linux/v4l2/StreamFormat.h"

#include <memory>

namespace QelUtilVideo {

/// Makes frames of the buffers of a stream. One thread.
class CameraFrames {
 public:
  CameraFrames(const StreamFormat& format, std::shared_ptr<CameraBuffers> buffers, MakeCameraFrame convert);

  /// The frame, bi-planar 4:2:0 in video range, or null for a damaged one. The driver gets the buffer again:
  /// at once, or when the frame goes, which is one in the driver's memory where the formats are the same and
  /// the driver has enough buffers left.
  [[nodiscard]] CVPixelBufferRef make(const CameraBuffers::Filled& buffer);

 private:
  [[nodiscard]] CVPixelBufferRef lend(const CameraBuffers::Filled& buffer,
                                      const CameraPicture& picture) const;

  const StreamFormat format_;
  const std::shared_ptr<CameraBuffers> buffers_;
  const MakeCameraFrame convert_;
};

}  // namespace QelUtilVideo
