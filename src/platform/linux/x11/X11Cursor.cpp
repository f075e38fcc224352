#include "platform/linux/x11/X11Cursor.h"

#include <xcb/xfixes.h>

#include <atomic>
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

/// Counts how often the server said that it shows another cursor.
class X11Cursor::Changes : public X11EventSink {
 public:
  explicit Changes(std::uint8_t firstXFixesEvent) : notify_(firstXFixesEvent + XCB_XFIXES_CURSOR_NOTIFY) {}

  [[nodiscard]] std::uint64_t count() const { return count_; }

  void handleEvent(const xcb_generic_event_t& event) override {
    if ((event.response_type & 0x7F) == notify_) count_ += 1;
  }
  void handleLoss() override {}

 private:
  const int notify_;
  std::atomic<std::uint64_t> count_{0};
};

X11Cursor::X11Cursor(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {
  if (!connection_ || !connection_->hasCursorImages()) return;
  changes_ = std::make_shared<Changes>(connection_->firstXFixesEvent());
  connection_->addSink(changes_);
  const Use use(*connection_);
  xcb_xfixes_select_cursor_input(use, connection_->root(), XCB_XFIXES_CURSOR_NOTIFY_MASK_DISPLAY_CURSOR);
  xcb_flush(use);
}

X11Cursor::~X11Cursor() = default;

std::optional<CGPoint> X11Cursor::CGEventGetLocation() {
  if (!connection_) return std::nullopt;
  const Use use(*connection_);
  const auto pointer = use.reply(xcb_query_pointer(use, connection_->root()), xcb_query_pointer_reply);
  if (!pointer || !pointer->same_screen) return std::nullopt;
  return CGPoint{static_cast<double>(pointer->root_x), static_cast<double>(pointer->root_y)};
}

std::optional<NSCursor> X11Cursor::currentSystemCursor() try {
  if (!changes_) return std::nullopt;
  // The main loop may not be served, which hands out events too.
  { const Use events(*connection_); }
  if (!connection_->isAlive()) return std::nullopt;
  std::optional<Cached> current = cached_.copy();
  if (!current || current->change != changes_->count()) {
    current = fetch();
    cached_.with([&](std::optional<Cached>& cached) { cached = current; });
  }
  return current ? std::optional(std::move(current->cursor)) : std::nullopt;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

std::optional<X11Cursor::Cached> X11Cursor::fetch() {
  Cached fetched{.change = changes_->count(), .serial = 0, .cursor = {}};
  const Use use(*connection_);
  const auto reply = use.reply(xcb_xfixes_get_cursor_image(use), xcb_xfixes_get_cursor_image_reply);
  if (!reply) return std::nullopt;
  if (std::optional<Cached> known = cached_.copy(); known && known->serial == reply->cursor_serial) {
    known->change = fetched.change;
    return known;
  }
  fetched.serial = reply->cursor_serial;
  fetched.cursor = {pictureOf(*reply), {static_cast<double>(reply->xhot), static_cast<double>(reply->yhot)}};
  return fetched.cursor.image ? std::optional(std::move(fetched)) : std::nullopt;
}

}  // namespace QelUtilVideo
