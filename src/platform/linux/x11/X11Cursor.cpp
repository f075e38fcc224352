#include "platform/linux/x11/X11Cursor.h"

#include <xcb/xfixes.h>

#include <bit>
#include <new>
#include <utility>

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

/// The picture in the library's usual layout, which is that of the server's words on this machine.
std::shared_ptr<NSImage> pictureOf(const xcb_xfixes_get_cursor_image_reply_t& reply) {
  static_assert(std::endian::native == std::endian::little);
  const std::uint32_t* pixels = xcb_xfixes_get_cursor_image_cursor_image(&reply);
  const std::size_t bytesPerRow = reply.width * sizeof(std::uint32_t);
  CGImageRef image =
      makeImage(reply.width, reply.height, bytesPerRow, reinterpret_cast<const std::byte*>(pixels));
  return image ? std::make_shared<NSImage>(std::move(image), CGSize{}) : nullptr;
}

}  // namespace

X11Cursor::X11Cursor(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {}

std::optional<CGPoint> X11Cursor::CGEventGetLocation() {
  if (!connection_) return std::nullopt;
  const Use use(*connection_);
  const auto pointer = use.reply(xcb_query_pointer(use, connection_->root()), xcb_query_pointer_reply);
  if (!pointer || !pointer->same_screen) return std::nullopt;
  return CGPoint{static_cast<double>(pointer->root_x), static_cast<double>(pointer->root_y)};
}

std::optional<NSCursor> X11Cursor::currentSystemCursor() try {
  if (!connection_ || !connection_->hasCursorImages()) return std::nullopt;
  const Use use(*connection_);
  const auto reply = use.reply(xcb_xfixes_get_cursor_image(use), xcb_xfixes_get_cursor_image_reply);
  if (!reply) return std::nullopt;
  const std::uint32_t serial = reply->cursor_serial;
  const auto known = cached_.with([&](const std::optional<Cached>& cached) {
    return cached && cached->serial == serial ? std::optional(cached->cursor) : std::nullopt;
  });
  if (known) return known;
  NSCursor cursor{pictureOf(*reply), {static_cast<double>(reply->xhot), static_cast<double>(reply->yhot)}};
  if (!cursor.image) return std::nullopt;
  cached_.with([&](std::optional<Cached>& cached) { cached = Cached{serial, cursor}; });
  return cursor;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

}  // namespace QelUtilVideo
