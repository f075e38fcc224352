#include <QelUtilVideo/platform/NSImage.h>

#include <utility>

namespace QelUtilVideo {

NSImage::NSImage(CGImageRef image, CGSize size) : image_(std::move(image)), size_(size) {
  if (image_ && size_ == CGSize{}) {
    size_ = {static_cast<double>(image_->width()), static_cast<double>(image_->height())};
  }
}

}  // namespace QelUtilVideo
