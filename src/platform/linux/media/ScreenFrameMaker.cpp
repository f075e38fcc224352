#include "platform/linux/media/ScreenFrameMaker.h"

#include "platform/Images.h"

#include <utility>

namespace QelUtilVideo {

CVPixelBufferRef ScreenFrameMaker::make(std::shared_ptr<CGImage> picture, const CGImageRef& cursor,
                                        CGPoint place) {
  if (!picture || picture->layout().colorSpaceModel != CGColorSpaceModel::rgb) return nullptr;
  const CGImageLayout layout = picture->layout();
  const auto bytes = CGDataProviderCopyData(std::move(picture));
  if (!bytes) return nullptr;
  const auto context = cursor ? images_.CGBitmapContextCreate(bytes->data(), layout) : nullptr;
  if (context) {
    const auto width = static_cast<double>(cursor->width()), height = static_cast<double>(cursor->height());
    const double bottom = static_cast<double>(layout.height) - place.y - height;
    context->CGContextDrawImage(CGRectMake(place.x, bottom, width, height), *cursor);
  }
  CVPixelBufferRef pixels;
  const CVReturn result = CVPixelBufferCreateWithBytes(
      layout.width, layout.height, kCVPixelFormatType_32BGRA, bytes->data(), layout.bytesPerRow,
      [owned = bytes]() mutable { owned.reset(); }, pixels);
  return result == kCVReturnSuccess ? converter_.convert(pixels) : nullptr;
}

}  // namespace QelUtilVideo
