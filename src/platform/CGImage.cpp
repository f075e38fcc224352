#include <QelUtilVideo/platform/CGImage.h>

#include "platform/Images.h"

#include <cstring>
#include <new>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::size_t kMaximumSide = 65535;
constexpr std::size_t kBytesPerPixel = 4;

/// Gives bytes that are at hand.
class DirectProvider : public CGDataProvider {
 public:
  explicit DirectProvider(std::shared_ptr<ImageBytes> bytes) : bytes_(std::move(bytes)) {}
  std::shared_ptr<ImageBytes> bytes() override { return bytes_; }

 private:
  std::shared_ptr<ImageBytes> bytes_;
};

}  // namespace

ImageBytes::~ImageBytes() = default;

CGDataProvider::~CGDataProvider() = default;

CGImage::CGImage(CGImageLayout layout, std::shared_ptr<CGDataProvider> provider)
    : layout_(layout), provider_(std::move(provider)) {}

CGImage::CGImage(CGImageLayout layout, std::shared_ptr<ImageBytes> bytes) : layout_(layout) {
  if (bytes) provider_ = std::make_shared<DirectProvider>(std::move(bytes));
}

CGImage::~CGImage() = default;

CGImageRef makeImage(std::size_t width, std::size_t height, std::size_t bytesPerRow,
                     const std::byte* pixels) try {
  const std::size_t row = width * kBytesPerPixel;
  if (!pixels || width == 0 || height == 0 || width > kMaximumSide || height > kMaximumSide ||
      bytesPerRow < row) {
    return nullptr;
  }
  std::shared_ptr<ImageBytes> bytes = makeHeapBytes(row * height);
  if (!bytes) return nullptr;
  for (std::size_t y = 0; y < height; ++y) {
    std::memcpy(bytes->data() + y * row, pixels + y * bytesPerRow, row);
  }
  CGImageLayout layout;
  layout.width = width;
  layout.height = height;
  layout.bytesPerRow = row;
  return std::make_shared<const CGImage>(layout, std::move(bytes));
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace QelUtilVideo
