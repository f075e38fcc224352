#include "platform/linux/x11/windowserver/WindowPiece.h"

#include "platform/Images.h"

#include <pixman.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kBytesPerPixel = 4;
constexpr unsigned kDepthWithAlpha = 32;

struct UnrefImage {
  void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, UnrefImage>;

PixmanImage wrap(pixman_format_code_t format, int width, int height, std::byte* bytes) {
  // Pixels come in rows of whole words.
  return PixmanImage(pixman_image_create_bits(format, width, height, reinterpret_cast<std::uint32_t*>(bytes),
                                              width * static_cast<int>(kBytesPerPixel)));
}

bool hasAlpha(const WindowPiece& piece, Opacity opacity) {
  return piece.format.depth == kDepthWithAlpha && opacity == Opacity::asItIs;
}

/// Whether the piece's own memory can become the picture's.
bool isWhole(const WindowPiece& piece, const PixelRect& area) {
  return piece.place == area && piece.format.isUsual() && !piece.shape;
}

/// Brings pixels of other layouts into the usual one, opaque. False when that cannot be done.
bool makeUsual(WindowPiece& piece) {
  if (piece.format.isUsual()) return true;
  const auto width = static_cast<std::size_t>(piece.place.width);
  const auto height = static_cast<std::size_t>(piece.place.height);
  auto converted = makeHeapBytes(width * height * kBytesPerPixel);
  if (!converted || !convertToUsual(piece.format, piece.bytes->data(), width, height, converted->data())) {
    return false;
  }
  piece.bytes = std::move(converted);
  piece.format = X11PixelFormat();
  return true;
}

/// Sets the fourth byte of each pixel of a picture without gaps. False when there is no memory.
bool fillAlpha(std::byte* pixels, int width, int height) {
  const auto colors = wrap(PIXMAN_x8r8g8b8, width, height, pixels);
  const auto target = wrap(PIXMAN_a8r8g8b8, width, height, pixels);
  if (!colors || !target) return false;
  pixman_image_composite32(PIXMAN_OP_SRC, colors.get(), nullptr, target.get(), 0, 0, 0, 0, 0, 0, width,
                           height);
  return true;
}

class Region {
 public:
  /// Of all the rectangles together, counted from a corner.
  Region(const std::vector<PixelRect>& rects, int left, int top) {
    std::vector<pixman_box32_t> boxes;
    boxes.reserve(rects.size());
    for (const PixelRect& rect : rects) {
      const int x = rect.x - left, y = rect.y - top;
      boxes.push_back({x, y, x + rect.width, y + rect.height});
    }
    pixman_region32_init_rects(&region_, boxes.data(), static_cast<int>(boxes.size()));
  }
  Region(const Region&) = delete;
  Region& operator=(const Region&) = delete;
  ~Region() { pixman_region32_fini(&region_); }

  [[nodiscard]] pixman_region32_t* get() { return &region_; }

 private:
  pixman_region32_t region_{};
};

void draw(const WindowPiece& piece, const PixelRect& area, pixman_image_t* canvas, Opacity opacity) {
  const PixelRect& place = piece.place;
  const auto source = wrap(hasAlpha(piece, opacity) ? PIXMAN_a8r8g8b8 : PIXMAN_x8r8g8b8, place.width,
                           place.height, piece.bytes->data());
  if (!source) return;
  std::optional<Region> clip;
  if (piece.shape) {
    clip.emplace(*piece.shape, area.x, area.y);
    pixman_image_set_clip_region32(canvas, clip->get());
  }
  pixman_image_composite32(PIXMAN_OP_OVER, source.get(), nullptr, canvas, 0, 0, 0, 0, place.x - area.x,
                           place.y - area.y, place.width, place.height);
  pixman_image_set_clip_region32(canvas, nullptr);
}

/// Memory for the picture, transparent.
std::shared_ptr<ImageBytes> makeCanvas(const CGImageLayout& layout, ShmPool& pool) {
  const std::size_t size = layout.bytesPerRow * layout.height;
  // Shared memory is at hand for use again, and costs the system no new pages.
  std::shared_ptr<ImageBytes> bytes = pool.take(size);
  if (!bytes) bytes = makeHeapBytes(size);
  if (bytes) std::memset(bytes->data(), 0, size);
  return bytes;
}

}  // namespace

PixelRect intersection(const PixelRect& a, const PixelRect& b) {
  const int x = std::max(a.x, b.x), y = std::max(a.y, b.y);
  const int width = std::min(a.x + a.width, b.x + b.width) - x;
  const int height = std::min(a.y + a.height, b.y + b.height) - y;
  return {x, y, std::max(width, 0), std::max(height, 0)};
}

std::shared_ptr<CGImage> composePieces(const PixelRect& area, std::vector<WindowPiece> pieces,
                                       Opacity opacity, ShmPool& pool) {
  CGImageLayout layout;
  layout.width = static_cast<std::size_t>(area.width);
  layout.height = static_cast<std::size_t>(area.height);
  layout.bytesPerRow = layout.width * kBytesPerPixel;
  for (WindowPiece& piece : pieces) {
    if (!makeUsual(piece)) return nullptr;
  }

  auto next = pieces.begin();
  std::shared_ptr<ImageBytes> bytes;
  bool isOpaque = false;
  if (next != pieces.end() && isWhole(*next, area)) {
    isOpaque = !hasAlpha(*next, opacity);
    bytes = std::move(next++->bytes);
  } else {
    bytes = makeCanvas(layout, pool);
  }
  if (!bytes) return nullptr;
  const auto canvas = wrap(PIXMAN_a8r8g8b8, area.width, area.height, bytes->data());
  if (!canvas) return nullptr;
  if (isOpaque && !fillAlpha(bytes->data(), area.width, area.height)) return nullptr;
  for (; next != pieces.end(); ++next) draw(*next, area, canvas.get(), opacity);
  return std::make_shared<CGImage>(layout, std::move(bytes));
}

}  // namespace QelUtilVideo
