#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>

#include <cstddef>
#include <memory>

namespace QelUtilVideo {

/// A drawing surface over bytes that somebody else owns. The origin is the bottom-left corner, units
/// are pixels. One thread at a time.
class CGContext {
 public:
  virtual ~CGContext() = default;
  /// Draws the image over what is there, scaled into the rectangle, clipped to the surface.
  virtual void CGContextDrawImage(const CGRect& rect, const CGImage& image) = 0;
};

/// Making and drawing images. Any thread.
class Images {
 public:
  virtual ~Images() = default;
  /// A surface over `bytes`, laid out as `layout` says; null when such a layout cannot be drawn to
  /// (only RGB with 8 bits per component and 32 per pixel can). The bytes outlive the surface.
  [[nodiscard]] virtual std::unique_ptr<CGContext> CGBitmapContextCreate(std::byte* bytes,
                                                                         const CGImageLayout& layout) = 0;
};

/// `CGDataProviderCopyData` into bytes that the caller may change: takes the image's own bytes when
/// nobody else can see them, else copies them once. Null when the image has no bytes, or fewer than its
/// layout needs.
[[nodiscard]] std::shared_ptr<ImageBytes> CGDataProviderCopyData(std::shared_ptr<CGImage> image);

/// Bytes on the heap, not initialised; null when there is no memory.
[[nodiscard]] std::shared_ptr<ImageBytes> makeHeapBytes(std::size_t size);

}  // namespace QelUtilVideo
