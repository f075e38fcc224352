#include <QelUtilVideo/platform/CGImage.h>

#include "platform/linux/media/OutputFile.h"
#include "platform/linux/media/PixelOrder.h"

#include <png.h>

#include <cstdint>
#include <exception>
#include <utility>
#include <vector>

namespace QelUtilVideo {

namespace {

enum class PngError { unsupportedImage, noPixels, encodingFailed, fileNotWritten };

NSError errorWith(PngError code, std::string text) {
  return {"QelUtilVideo.PNG", static_cast<std::int64_t>(code), std::move(text)};
}

/// Frees what libpng holds for one image, also after a failure.
struct PngImage : png_image {
  PngImage() : png_image{} { version = PNG_IMAGE_VERSION; }
  PngImage(const PngImage&) = delete;
  PngImage& operator=(const PngImage&) = delete;
  ~PngImage() { png_image_free(this); }
};

/// Rows without gaps, red first: three bytes per pixel where there is no alpha, else four with straight
/// alpha, which is what the file holds.
std::vector<std::uint8_t> fileRows(const CGImageLayout& layout, const PixelOrder& order,
                                   const std::byte* bytes) {
  const bool hasAlpha = order.alphaKind != PixelOrder::Alpha::absent;
  std::vector<std::uint8_t> rows(layout.width * layout.height * (hasAlpha ? 4 : 3));
  auto out = rows.begin();
  for (std::size_t y = 0; y < layout.height; ++y) {
    const auto* pixel = reinterpret_cast<const std::uint8_t*>(bytes) + y * layout.bytesPerRow;
    for (std::size_t x = 0; x < layout.width; ++x, pixel += 4) {
      const std::uint8_t alpha = hasAlpha ? pixel[order.alpha] : 255;
      const bool divides = order.alphaKind == PixelOrder::Alpha::premultiplied && alpha != 255;
      for (const unsigned byte : {order.red, order.green, order.blue}) {
        *out++ = divides ? unpremultiplied(pixel[byte], alpha) : pixel[byte];
      }
      if (hasAlpha) *out++ = alpha;
    }
  }
  return rows;
}

/// The file's contents; empty on failure, with libpng's message in `message`.
std::vector<std::byte> encoded(const CGImageLayout& layout, bool hasAlpha,
                               const std::vector<std::uint8_t>& rows, std::string& message) {
  PngImage image;
  image.width = static_cast<png_uint_32>(layout.width);
  image.height = static_cast<png_uint_32>(layout.height);
  image.format = hasAlpha ? PNG_FORMAT_RGBA : PNG_FORMAT_RGB;
  std::vector<std::byte> file(PNG_IMAGE_PNG_SIZE_MAX(image));
  png_alloc_size_t size = file.size();
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, rows.data(), 0, nullptr)) {
    message = image.message;
    return {};
  }
  file.resize(size);
  return file;
}

std::optional<NSError> write(const CGImage& image, const std::string& path) {
  const CGImageLayout& layout = image.layout();
  const std::optional<PixelOrder> order = pixelOrderOf(layout);
  if (!order) {
    return errorWith(PngError::unsupportedImage,
                     "cannot write \"" + path + "\": the picture is not RGB with 32 bits per pixel");
  }
  const std::shared_ptr<ImageBytes> bytes = image.dataProvider() ? image.dataProvider()->bytes() : nullptr;
  if (!bytes || bytes->size() < (layout.height - 1) * layout.bytesPerRow + 4 * layout.width) {
    return errorWith(PngError::noPixels, "cannot write \"" + path + "\": the picture has no pixels");
  }
  std::string message;
  const std::vector<std::byte> file = encoded(layout, order->alphaKind != PixelOrder::Alpha::absent,
                                              fileRows(layout, *order, bytes->data()), message);
  if (file.empty()) {
    return errorWith(PngError::encodingFailed, "cannot write \"" + path + "\": " + message);
  }
  if (const std::error_code error = replaceFile(path, file)) {
    return errorWith(PngError::fileNotWritten, "cannot write \"" + path + "\": " + error.message());
  }
  return std::nullopt;
}

}  // namespace

std::optional<NSError> writePNG(const CGImage& image, const std::string& path) try {
  return write(image, path);
} catch (const std::exception&) {
  return errorWith(PngError::encodingFailed, "cannot write \"" + path + "\": not enough memory");
}

}  // namespace QelUtilVideo
