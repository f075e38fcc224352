#include "platform/linux/media/PixmanImages.h"

#include "platform/linux/media/PixelOrder.h"

#include <pixman.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace QelUtilVideo {

namespace {

static_assert(std::endian::native == std::endian::little, "pixman's formats name words, ours name bytes");

struct UnrefImage {
  void operator()(pixman_image_t* image) const { pixman_image_unref(image); }
};
using PixmanImage = std::unique_ptr<pixman_image_t, UnrefImage>;

/// A rectangle of whole pixels, first row at the top.
struct Box {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

pixman_format_code_t pixmanFormat(const PixelOrder& order) {
  const bool hasAlpha = order.alphaKind != PixelOrder::Alpha::absent;
  if (order.alpha == 3) {
    if (order.red == 2) return hasAlpha ? PIXMAN_a8r8g8b8 : PIXMAN_x8r8g8b8;
    return hasAlpha ? PIXMAN_a8b8g8r8 : PIXMAN_x8b8g8r8;
  }
  if (order.red == 1) return hasAlpha ? PIXMAN_b8g8r8a8 : PIXMAN_b8g8r8x8;
  return hasAlpha ? PIXMAN_r8g8b8a8 : PIXMAN_r8g8b8x8;
}

/// Pixels of one RGB layout in somebody's memory.
struct Pixels {
  std::byte* bytes = nullptr;
  std::size_t bytesPerRow = 0;
  int width = 0;
  int height = 0;
  PixelOrder order;

  /// Whether pixman can work on them where they are.
  bool suitPixman() const {
    return order.alphaKind != PixelOrder::Alpha::straight && bytesPerRow % sizeof(std::uint32_t) == 0 &&
           bytesPerRow <= static_cast<std::size_t>(std::numeric_limits<int>::max()) &&
           reinterpret_cast<std::uintptr_t>(bytes) % alignof(std::uint32_t) == 0;
  }

  PixmanImage wrapped() const {
    return PixmanImage(pixman_image_create_bits(pixmanFormat(order), width, height,
                                                reinterpret_cast<std::uint32_t*>(bytes),
                                                static_cast<int>(bytesPerRow)));
  }

  Pixels part(const Box& box) const {
    Pixels pixels = *this;
    pixels.bytes += static_cast<std::size_t>(box.y) * bytesPerRow + static_cast<std::size_t>(box.x) * 4;
    pixels.width = box.width;
    pixels.height = box.height;
    return pixels;
  }
};

using Component = std::uint8_t (*)(std::uint8_t color, std::uint8_t alpha);

/// Copies the pixels, and takes their colours through `convert` when they carry straight alpha.
void copyPixels(const Pixels& from, const Pixels& to, Component convert) {
  const PixelOrder& order = from.order;
  for (int y = 0; y < from.height; ++y) {
    const auto* source = reinterpret_cast<const std::uint8_t*>(from.bytes) + y * from.bytesPerRow;
    auto* target = reinterpret_cast<std::uint8_t*>(to.bytes) + y * to.bytesPerRow;
    std::memcpy(target, source, static_cast<std::size_t>(from.width) * 4);
    if (order.alphaKind != PixelOrder::Alpha::straight) continue;
    for (int x = 0; x < from.width; ++x, target += 4) {
      for (const unsigned byte : {order.red, order.green, order.blue}) {
        target[byte] = convert(target[byte], target[order.alpha]);
      }
    }
  }
}

/// The same picture in rows that suit pixman, colours multiplied by alpha.
class AlignedCopy {
 public:
  explicit AlignedCopy(const Pixels& original)
      : original_(original),
        words_(static_cast<std::size_t>(original.width) * static_cast<std::size_t>(original.height)) {
    copy_ = original;
    copy_.bytes = reinterpret_cast<std::byte*>(words_.data());
    copy_.bytesPerRow = static_cast<std::size_t>(original.width) * 4;
    copyPixels(original_, copy_, premultiplied);
  }
  const Pixels& pixels() const { return copy_; }
  void writeBack() const { copyPixels(copy_, original_, unpremultiplied); }

 private:
  Pixels original_;
  std::vector<std::uint32_t> words_;
  Pixels copy_;
};

/// A drawn picture's place along one axis: pixels from `first` on, each taken from the source at
/// (its centre - `begin`) x `scale`.
struct Span {
  int first = 0;
  int count = 0;
  double begin = 0;
  double scale = 1;

  bool isIdentity() const { return scale == 1 && begin == std::floor(begin); }
};

/// The pixels whose centres lie inside [begin, begin + extent) and on a surface of `limit` pixels.
std::optional<Span> spanOf(double begin, double extent, std::size_t sourceExtent, int limit) {
  if (!(extent > 0) || !std::isfinite(begin) || !std::isfinite(extent)) return std::nullopt;
  // Rounding in the caller's arithmetic must not turn a plain copy into a filtered one.
  constexpr double kNegligible = 1e-6;
  const double whole = std::round(begin);
  if (std::abs(begin - whole) < kNegligible) begin = whole;
  double scale = static_cast<double>(sourceExtent) / extent;
  if (std::abs(scale - 1) < kNegligible) scale = 1;

  const double first = std::max(0.0, std::ceil(begin - 0.5));
  const double end = std::min<double>(limit, std::ceil(begin + extent - 0.5));
  if (!(end > first)) return std::nullopt;
  return Span{static_cast<int>(first), static_cast<int>(end - first), begin, scale};
}

/// Makes the first pixel drawn the one at the beginning of the spans. False when the scale is beyond
/// pixman's numbers.
bool setScaling(pixman_image_t* picture, const Span& across, const Span& down) {
  pixman_f_transform exact;
  pixman_f_transform_init_scale(&exact, across.scale, down.scale);
  exact.m[0][2] = (across.first - across.begin) * across.scale;
  exact.m[1][2] = (down.first - down.begin) * down.scale;
  pixman_transform_t transform;
  if (!pixman_transform_from_pixman_f_transform(&transform, &exact)) return false;
  pixman_image_set_repeat(picture, PIXMAN_REPEAT_PAD);
  return pixman_image_set_transform(picture, &transform) &&
         pixman_image_set_filter(picture, PIXMAN_FILTER_BILINEAR, nullptr, 0);
}

/// Draws the source over all of the target, which is the part of the surface that the spans name.
void composite(const Pixels& source, const Pixels& target, const Span& across, const Span& down) {
  const bool isCopy = across.isIdentity() && down.isIdentity();
  const Box copied{across.first - static_cast<int>(across.begin), down.first - static_cast<int>(down.begin),
                   across.count, down.count};
  const PixmanImage picture = (isCopy ? source.part(copied) : source).wrapped();
  const PixmanImage surface = target.wrapped();
  if (!picture || !surface) return;
  if (!isCopy && !setScaling(picture.get(), across, down)) return;
  pixman_image_composite32(PIXMAN_OP_OVER, picture.get(), nullptr, surface.get(), 0, 0, 0, 0, 0, 0,
                           across.count, down.count);
}
Pixels pixelsOf(std::byte* bytes, const CGImageLayout& layout, const PixelOrder& order) {
  return {bytes, layout.bytesPerRow, static_cast<int>(layout.width), static_cast<int>(layout.height), order};
}

class BitmapContext : public CGContext {
 public:
  explicit BitmapContext(const Pixels& surface) : surface_(surface) {}

  void CGContextDrawImage(const CGRect& rect, const CGImage& image) override try {
    const std::optional<PixelOrder> order = pixelOrderOf(image.layout());
    const std::shared_ptr<ImageBytes> bytes =
        order && image.dataProvider() ? image.dataProvider()->bytes() : nullptr;
    const std::size_t needed = (image.height() - 1) * image.layout().bytesPerRow + 4 * image.width();
    if (!bytes || bytes->size() < needed) return;

    const std::optional<Span> across = spanOf(rect.origin.x, rect.size.width, image.width(), surface_.width);
    const std::optional<Span> down = spanOf(surface_.height - (rect.origin.y + rect.size.height),
                                            rect.size.height, image.height(), surface_.height);
    if (!across || !down) return;
    drawSource(pixelsOf(bytes->data(), image.layout(), *order), *across, *down);
  } catch (const std::bad_alloc&) {
    // Without the memory for a copy the surface stays as it is.
  }

 private:
  void drawSource(const Pixels& source, const Span& across, const Span& down) {
    if (source.suitPixman()) return drawOnto(source, across, down);
    drawOnto(AlignedCopy(source).pixels(), across, down);
  }

  void drawOnto(const Pixels& source, const Span& across, const Span& down) {
    const Pixels target = surface_.part({across.first, down.first, across.count, down.count});
    if (target.suitPixman()) return composite(source, target, across, down);
    const AlignedCopy copy(target);
    composite(source, copy.pixels(), across, down);
    copy.writeBack();
  }

  Pixels surface_;
};

}  // namespace

std::unique_ptr<CGContext> PixmanImages::CGBitmapContextCreate(std::byte* bytes,
                                                               const CGImageLayout& layout) try {
  const std::optional<PixelOrder> order = pixelOrderOf(layout);
  if (!bytes || !order) return nullptr;
  return std::make_unique<BitmapContext>(pixelsOf(bytes, layout, *order));
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace QelUtilVideo
