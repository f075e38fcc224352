#pragma once

#include "platform/linux/media/PixmanImages.h"

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <memory>

namespace QelUtilVideo {

/// Makes frames of pictures of a display, bi-planar 4:2:0 in video range. One thread at a time.
class ScreenFrameMaker {
 public:
  /// `cursor`, which may be null, is drawn into the picture at `place`: pixels, origin top-left. Null when
  /// the picture has no bytes, is no picture of a display, or there is no memory.
  [[nodiscard]] CVPixelBufferRef make(std::shared_ptr<CGImage> picture, const CGImageRef& cursor,
                                      CGPoint place);

 private:
  PixmanImages images_;
  PixelBufferConverter converter_;
};

}  // namespace QelUtilVideo
