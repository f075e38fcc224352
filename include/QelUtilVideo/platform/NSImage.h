#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/NSObject.h>

namespace QelUtilVideo {

/// A picture with a size in points. Immutable; any thread.
class QEL_EXPORT NSImage : public virtual NSObject {
 public:
  /// `initWithCGImage:size:`; a size of zero means the image's own size in pixels.
  NSImage(CGImageRef image, CGSize size);

  [[nodiscard]] CGSize size() const { return size_; }
  /// The bitmap; never null for an image that the library hands out.
  [[nodiscard]] const CGImageRef& image() const { return image_; }

 private:
  CGImageRef image_;
  CGSize size_;
};

}  // namespace QelUtilVideo
