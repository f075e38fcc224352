#include "capture/windowlist/PixelBufferMaking.h"

#include "platform/Cursor.h"
#include "platform/Images.h"
#include "platform/Platform.h"

#include <utility>

namespace QelUtilVideo::windowlist {
namespace {

void drawCursor(Platform& platform, std::byte* bytes, const CGImageLayout& layout, const CGRect& rect) {
  const auto location = platform.cursor().CGEventGetLocation();
  if (!location || !CGRectContainsPoint(rect, *location)) return;
  const auto cursor = platform.cursor().currentSystemCursor();
  if (!cursor || !cursor->image || !cursor->image->image() || !layout.colorSpaceModel) return;
  const auto context = platform.images().CGBitmapContextCreate(bytes, layout);
  if (!context) return;

  const double scaleX = static_cast<double>(layout.width) / rect.size.width;
  const double scaleY = static_cast<double>(layout.height) / rect.size.height;
  const CGSize size = cursor->image->size();
  const double x = scaleX * ((location->x - CGRectGetMinX(rect)) - cursor->hotSpot.x);
  const double y = scaleY * (cursor->hotSpot.y + ((CGRectGetMaxY(rect) - location->y) - size.height));
  context->CGContextDrawImage(CGRectMake(x, y, size.width * scaleX, size.height * scaleY),
                              *cursor->image->image());
}

OSType pixelFormat(const CGImageLayout& layout) {
  const auto alpha = static_cast<CGImageAlphaInfo>(layout.bitmapInfo & kCGBitmapAlphaInfoMask);
  const bool alphaFirst = alpha == CGImageAlphaInfo::premultipliedFirst || alpha == CGImageAlphaInfo::first ||
                          alpha == CGImageAlphaInfo::noneSkipFirst;
  const bool littleEndian = (layout.bitmapInfo & kCGBitmapByteOrder32Little) != 0;
  if (alphaFirst) return littleEndian ? kCVPixelFormatType_32BGRA : kCVPixelFormatType_32ARGB;
  return littleEndian ? kCVPixelFormatType_32ABGR : kCVPixelFormatType_32RGBA;
}

}  // namespace

CVPixelBufferRef makePixelBuffer(Platform& platform, std::shared_ptr<CGImage> image, const CGRect& rect) {
  if (!image) return nullptr;
  const CGImageLayout layout = image->layout();
  const std::shared_ptr<ImageBytes> bytes = CGDataProviderCopyData(std::move(image));
  if (!bytes) return nullptr;
  drawCursor(platform, bytes->data(), layout, rect);

  CVPixelBufferRef pixelBuffer;
  const CVReturn result = CVPixelBufferCreateWithBytes(
      layout.width, layout.height, pixelFormat(layout), bytes->data(), layout.bytesPerRow,
      [owned = bytes]() mutable { owned.reset(); }, pixelBuffer);
  return result == kCVReturnSuccess ? pixelBuffer : nullptr;
}

}  // namespace QelUtilVideo::windowlist
