#pragma once

#include <QelUtilVideo/platform/Export.h>
#include <QelUtilVideo/platform/NSError.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

enum class CGColorSpaceModel : std::int32_t {
  monochrome = 0,  ///< kCGColorSpaceModelMonochrome
  rgb = 1,         ///< kCGColorSpaceModelRGB
  indexed = 5,     ///< kCGColorSpaceModelIndexed
};

enum class CGImageAlphaInfo : std::uint32_t {
  none = 0,
  premultipliedLast = 1,
  premultipliedFirst = 2,
  last = 3,
  first = 4,
  noneSkipLast = 5,
  noneSkipFirst = 6,
  only = 7,
};

/// The bit of an image's bitmap information that says "32-bit units, little-endian".
inline constexpr std::uint32_t kCGBitmapByteOrder32Little = 0x2000;
/// The bits of the bitmap information that hold the alpha information.
inline constexpr std::uint32_t kCGBitmapAlphaInfoMask = 0x1F;

/// Bytes that somebody owns, freed or handed back by the destructor. Whoever holds them sees to it that
/// nobody writes while another thread reads.
class QEL_EXPORT ImageBytes {
 public:
  virtual ~ImageBytes();
  [[nodiscard]] virtual std::byte* data() = 0;
  [[nodiscard]] virtual std::size_t size() const = 0;
};

/// Where an image's bytes come from. The bytes may move only when they are first asked for.
class QEL_EXPORT CGDataProvider {
 public:
  virtual ~CGDataProvider();
  /// The bytes, first row first, or null when they could not be had. Every call answers the same
  /// object. Any thread.
  [[nodiscard]] virtual std::shared_ptr<ImageBytes> bytes() = 0;
};

/// The facts about an image that are known without its bytes.
struct CGImageLayout {
  std::size_t width = 0;   ///< pixels
  std::size_t height = 0;  ///< pixels
  std::size_t bitsPerComponent = 8;
  std::size_t bitsPerPixel = 32;
  std::size_t bytesPerRow = 0;
  std::optional<CGColorSpaceModel> colorSpaceModel = CGColorSpaceModel::rgb;  ///< absent: no colour space
  /// Alpha information and byte order. The default is the library's usual picture: blue, green, red,
  /// alpha in memory, colours multiplied by alpha.
  std::uint32_t bitmapInfo =
      static_cast<std::uint32_t>(CGImageAlphaInfo::premultipliedFirst) | kCGBitmapByteOrder32Little;
};

/// An immutable picture. Any thread.
class QEL_EXPORT CGImage {
 public:
  CGImage(CGImageLayout layout, std::shared_ptr<CGDataProvider> provider);
  /// A picture whose bytes are at hand.
  CGImage(CGImageLayout layout, std::shared_ptr<ImageBytes> bytes);
  CGImage(const CGImage&) = delete;
  CGImage& operator=(const CGImage&) = delete;
  ~CGImage();

  [[nodiscard]] const CGImageLayout& layout() const { return layout_; }
  [[nodiscard]] std::size_t width() const { return layout_.width; }
  [[nodiscard]] std::size_t height() const { return layout_.height; }
  [[nodiscard]] CGImageAlphaInfo alphaInfo() const {
    return static_cast<CGImageAlphaInfo>(layout_.bitmapInfo & kCGBitmapAlphaInfoMask);
  }
  /// Null: the picture has no bytes to give.
  [[nodiscard]] const std::shared_ptr<CGDataProvider>& dataProvider() const { return provider_; }

 private:
  CGImageLayout layout_;
  std::shared_ptr<CGDataProvider> provider_;
};

using CGImageRef = std::shared_ptr<const CGImage>;

/// A copy of caller-made pixels as an image with the library's usual layout: `height` rows of
/// `bytesPerRow` bytes, blue, green, red, alpha, colours multiplied by alpha.
/// Null when there are no pixels, a side is 0 or above 65,535, or a row is shorter than four bytes per
/// pixel. Any thread.
[[nodiscard]] QEL_EXPORT CGImageRef makeImage(std::size_t width, std::size_t height, std::size_t bytesPerRow,
                                              const std::byte* pixels);

/// Writes the image as a PNG file, replacing an existing one only when the new one is complete.
/// Only RGB pictures of 32 bits per pixel are written. Absent on success, else what went wrong. Any thread;
/// returns when the file is written, which takes tens of milliseconds for a whole display.
[[nodiscard]] QEL_EXPORT std::optional<NSError> writePNG(const CGImage& image, const std::string& path);

}  // namespace QelUtilVideo
