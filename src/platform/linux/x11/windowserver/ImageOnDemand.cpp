#include "platform/linux/x11/windowserver/ImageOnDemand.h"

#include <mutex>
#include <utility>

namespace QelUtilVideo {

namespace {

std::optional<CGImageLayout> layoutOf(const PixelRect& size, const std::optional<X11PixelFormat>& format) {
  if (!format || (format->model == CGColorSpaceModel::rgb && !format->isConvertible())) return std::nullopt;
  CGImageLayout layout;
  layout.width = static_cast<std::size_t>(size.width);
  layout.height = static_cast<std::size_t>(size.height);
  layout.bytesPerRow = layout.width * 4;
  if (format->model == CGColorSpaceModel::rgb) return layout;
  layout.bitsPerComponent = format->depth;
  layout.bitsPerPixel = format->bitsPerPixel;
  layout.bytesPerRow = format->bytesPerRow(layout.width);
  layout.colorSpaceModel = format->model;
  layout.bitmapInfo = static_cast<std::uint32_t>(CGImageAlphaInfo::none);
  return layout;
}

/// Fetches the pixels when they are first asked for.
class PixelsOnDemand : public CGDataProvider {
 public:
  PixelsOnDemand(const std::shared_ptr<WindowPixels>& pixels, WantedPixels wanted,
                 const CGImageLayout& layout)
      : pixels_(pixels), wanted_(std::move(wanted)), layout_(layout) {}

  [[nodiscard]] std::shared_ptr<ImageBytes> bytes() override {
    std::call_once(fetched_, [this] {
      const auto pixels = pixels_.lock();
      const auto image = pixels ? pixels->fetch(wanted_.selection, wanted_.area, wanted_.opacity) : nullptr;
      if (!image || image->width() != layout_.width || image->height() != layout_.height) return;
      bytes_ = image->dataProvider()->bytes();
    });
    return bytes_;
  }

 private:
  const std::weak_ptr<WindowPixels> pixels_;
  const WantedPixels wanted_;
  const CGImageLayout layout_;
  std::once_flag fetched_;
  std::shared_ptr<ImageBytes> bytes_;
};

}  // namespace

std::shared_ptr<CGImage> makeImageOnDemand(const std::shared_ptr<WindowPixels>& pixels, const PixelRect& size,
                                           const std::optional<X11PixelFormat>& format, WantedPixels wanted) {
  const auto layout = layoutOf(size, format);
  if (!layout) return nullptr;
  return std::make_shared<CGImage>(*layout,
                                   std::make_shared<PixelsOnDemand>(pixels, std::move(wanted), *layout));
}

}  // namespace QelUtilVideo
