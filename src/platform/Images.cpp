#include "platform/Images.h"

#include <cstring>
#include <limits>
#include <new>
#include <optional>
#include <utility>

namespace QelUtilVideo {

namespace {

class HeapBytes : public ImageBytes {
 public:
  explicit HeapBytes(std::size_t size)
      : bytes_(std::make_unique_for_overwrite<std::byte[]>(size)), size_(size) {}
  std::byte* data() override { return bytes_.get(); }
  std::size_t size() const override { return size_; }

 private:
  std::unique_ptr<std::byte[]> bytes_;
  std::size_t size_;
};

/// From the first byte of the first row to the last pixel of the last; absent when no memory is that
/// large.
std::optional<std::size_t> bytesNeeded(const CGImageLayout& layout) {
  constexpr std::size_t kLimit = std::numeric_limits<std::size_t>::max() / 2;
  if (layout.width == 0 || layout.height == 0) return 0;
  if (layout.bitsPerPixel > 128 || layout.width > kLimit / 128) return std::nullopt;
  const std::size_t row = (layout.width * layout.bitsPerPixel + 7) / 8;
  if (layout.bytesPerRow > kLimit / layout.height) return std::nullopt;
  return (layout.height - 1) * layout.bytesPerRow + row;
}

/// Whether the caller's reference is the only one. When it is, everything that former holders did with
/// the object has happened before.
bool isSoleOwner(std::shared_ptr<ImageBytes>& bytes) {
  if (bytes.use_count() != 1) return false;
  // The count is read without ordering; giving up a second reference orders this thread after all
  // threads that gave up theirs.
  std::shared_ptr<ImageBytes> second = bytes;
  second.reset();
  return true;
}

}  // namespace

std::shared_ptr<ImageBytes> CGDataProviderCopyData(std::shared_ptr<CGImage> image) {
  if (!image || !image->dataProvider()) return nullptr;
  const CGImageLayout layout = image->layout();
  const std::optional<std::size_t> needed = bytesNeeded(layout);
  std::shared_ptr<ImageBytes> bytes = image->dataProvider()->bytes();
  if (!bytes || !needed || bytes->size() < *needed) return nullptr;

  // Dropping the last reference to the image drops its provider, and that its hold on the bytes, unless
  // somebody else holds one of them.
  image.reset();
  if (isSoleOwner(bytes)) return bytes;

  std::shared_ptr<ImageBytes> copy = makeHeapBytes(bytes->size());
  if (copy && copy->size() > 0) std::memcpy(copy->data(), bytes->data(), copy->size());
  return copy;
}

std::shared_ptr<ImageBytes> makeHeapBytes(std::size_t size) try {
  return std::make_shared<HeapBytes>(size);
} catch (const std::bad_alloc&) {
  return nullptr;
}

}  // namespace QelUtilVideo
