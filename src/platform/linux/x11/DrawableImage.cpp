#include "platform/linux/x11/DrawableImage.h"

#include "platform/Images.h"
#include "platform/linux/x11/PixelFormats.h"
#include "platform/linux/x11/ReplyBytes.h"

#include <limits>
#include <new>
#include <optional>
#include <utility>

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

constexpr std::size_t kLargestPixel = 4;

/// No server pads its rows to more than 64 bits.
std::size_t largestRow(std::size_t width) { return (kLargestPixel * width + 7) / 8 * 8; }

/// A rectangle in the protocol's numbers.
struct ProtocolRect {
  std::int16_t x;
  std::int16_t y;
  std::uint16_t width;
  std::uint16_t height;
};

std::optional<ProtocolRect> protocolRect(const DrawableRect& rect) {
  using Position = std::numeric_limits<std::int16_t>;
  if (rect.width <= 0 || rect.height <= 0 || rect.width > Position::max() || rect.height > Position::max() ||
      rect.x < Position::min() || rect.x > Position::max() || rect.y < Position::min() ||
      rect.y > Position::max()) {
    return std::nullopt;
  }
  return ProtocolRect{static_cast<std::int16_t>(rect.x), static_cast<std::int16_t>(rect.y),
                      static_cast<std::uint16_t>(rect.width), static_cast<std::uint16_t>(rect.height)};
}

/// Pixels as the server gave them.
struct ServerPixels {
  std::shared_ptr<ImageBytes> bytes;
  std::uint8_t depth = 0;
  xcb_visualid_t visual = 0;
};

std::optional<ServerPixels> fetch(const Use& use, ShmPool& pool, xcb_drawable_t drawable,
                                  const ProtocolRect& rect) {
  if (auto shared = pool.take(largestRow(rect.width) * rect.height)) {
    const auto reply =
        use.reply(xcb_shm_get_image(use, drawable, rect.x, rect.y, rect.width, rect.height, kAllPlanes,
                                    XCB_IMAGE_FORMAT_Z_PIXMAP, shared->segment(), 0),
                  xcb_shm_get_image_reply);
    if (!reply) return std::nullopt;
    return ServerPixels{std::move(shared), reply->depth, reply->visual};
  }
  auto reply = use.reply(xcb_get_image(use, XCB_IMAGE_FORMAT_Z_PIXMAP, drawable, rect.x, rect.y, rect.width,
                                       rect.height, kAllPlanes),
                         xcb_get_image_reply);
  if (!reply) return std::nullopt;
  const std::uint8_t depth = reply->depth;
  const xcb_visualid_t visual = reply->visual;
  return ServerPixels{std::make_shared<ReplyBytes>(std::move(reply)), depth, visual};
}

/// The pixels in the library's usual layout, or in their own where they are not RGB.
std::shared_ptr<CGImage> makeImageOf(ServerPixels pixels, const X11PixelFormat& format,
                                     const ProtocolRect& rect) {
  CGImageLayout layout;
  layout.width = rect.width;
  layout.height = rect.height;
  layout.bytesPerRow = format.bytesPerRow(rect.width);
  if (pixels.bytes->size() < layout.bytesPerRow * layout.height) return nullptr;

  if (format.isUsual()) {
    layout.bitmapInfo =
        static_cast<std::uint32_t>(CGImageAlphaInfo::noneSkipFirst) | kCGBitmapByteOrder32Little;
  } else if (format.model == CGColorSpaceModel::rgb) {
    layout.bytesPerRow = kLargestPixel * layout.width;
    auto converted = makeHeapBytes(layout.bytesPerRow * layout.height);
    if (!converted ||
        !convertToUsual(format, pixels.bytes->data(), layout.width, layout.height, converted->data())) {
      return nullptr;
    }
    pixels.bytes = std::move(converted);
  } else {
    layout.bitsPerComponent = format.depth;
    layout.bitsPerPixel = format.bitsPerPixel;
    layout.colorSpaceModel = format.model;
    layout.bitmapInfo = static_cast<std::uint32_t>(CGImageAlphaInfo::none);
  }
  return std::make_shared<CGImage>(layout, std::move(pixels.bytes));
}

}  // namespace

std::shared_ptr<CGImage> copyDrawable(X11Connection& connection, ShmPool& pool, xcb_drawable_t drawable,
                                      const DrawableRect& rect) try {
  const std::optional<ProtocolRect> area = protocolRect(rect);
  if (!area) return nullptr;
  const Use use(connection);
  std::optional<ServerPixels> pixels = fetch(use, pool, drawable, *area);
  if (!pixels) return nullptr;
  const auto format = X11PixelFormat::of(connection, pixels->depth, pixels->visual);
  return format ? makeImageOf(std::move(*pixels), *format, *area) : nullptr;
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace QelUtilVideo
