#include "platform/linux/media/PixmanImages.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>
#include <memory>

namespace QelUtilVideo {
namespace {

using RGBA = std::array<std::uint8_t, 4>;

/// A way to store pixels: its bitmap information, and where red, green, blue and alpha lie in a pixel.
struct Order {
  std::uint32_t bitmapInfo;
  std::array<std::size_t, 4> bytes;
};

constexpr Order order(CGImageAlphaInfo alpha, std::uint32_t byteOrder, std::array<std::size_t, 4> bytes) {
  return {static_cast<std::uint32_t>(alpha) | byteOrder, bytes};
}

constexpr std::uint32_t kLittle = kCGBitmapByteOrder32Little;
constexpr Order kBGRA = order(CGImageAlphaInfo::premultipliedFirst, kLittle, {2, 1, 0, 3});
constexpr Order kRGBA = order(CGImageAlphaInfo::premultipliedLast, 0, {0, 1, 2, 3});
constexpr Order kStraightRGBA = order(CGImageAlphaInfo::last, 0, {0, 1, 2, 3});

/// A picture in memory that is built pixel by pixel; empty in the beginning.
struct Canvas {
  Canvas(std::size_t width, std::size_t height, const Order& stored = kBGRA, std::size_t padding = 0)
      : order(stored.bytes) {
    layout.width = width;
    layout.height = height;
    layout.bytesPerRow = 4 * width + padding;
    layout.bitmapInfo = stored.bitmapInfo;
    bytes = makeHeapBytes(layout.bytesPerRow * height);
    std::memset(bytes->data(), 0, bytes->size());
  }
  std::byte* pixel(std::size_t x, std::size_t y) const {
    return bytes->data() + y * layout.bytesPerRow + 4 * x;
  }
  void set(std::size_t x, std::size_t y, RGBA color) const {
    for (std::size_t i = 0; i < 4; ++i) pixel(x, y)[order[i]] = std::byte{color[i]};
  }
  RGBA at(std::size_t x, std::size_t y) const {
    RGBA color{};
    for (std::size_t i = 0; i < 4; ++i) color[i] = std::to_integer<std::uint8_t>(pixel(x, y)[order[i]]);
    return color;
  }
  void draw(const CGRect& rect, const Canvas& picture) const {
    PixmanImages()
        .CGBitmapContextCreate(bytes->data(), layout)
        ->CGContextDrawImage(rect, CGImage(picture.layout, picture.bytes));
  }

  std::array<std::size_t, 4> order;
  CGImageLayout layout;
  std::shared_ptr<ImageBytes> bytes;
};

constexpr RGBA kRed{255, 0, 0, 255};
constexpr RGBA kGreen{0, 255, 0, 255};
constexpr RGBA kNothing{0, 0, 0, 0};

class CopyData : public testing::Test {
 protected:
  [[nodiscard]] auto image() const { return std::make_shared<CGImage>(layout_, bytes_); }

  std::shared_ptr<ImageBytes> bytes_ = makeHeapBytes(16);
  CGImageLayout layout_ = {.width = 2, .height = 2, .bytesPerRow = 8};
};

TEST_F(CopyData, copiesWhatSomebodyElseHoldsAndTakesTheRest) {
  std::memset(bytes_->data(), 42, 16);
  const std::byte* address = bytes_->data();
  auto shared = image();
  const std::shared_ptr<ImageBytes> copy = CGDataProviderCopyData(shared);
  EXPECT_NE(copy->data(), address);
  EXPECT_EQ(std::memcmp(copy->data(), address, 16), 0);

  bytes_.reset();
  std::shared_ptr<CGDataProvider> provider = shared->dataProvider();
  EXPECT_NE(CGDataProviderCopyData(shared)->data(), address);
  provider.reset();
  EXPECT_EQ(CGDataProviderCopyData(std::move(shared))->data(), address);
}

TEST_F(CopyData, refusesAnImageWithTooFewBytes) {
  for (const std::size_t bytesPerRow : {std::size_t{9}, SIZE_MAX / 2}) {
    layout_.bytesPerRow = bytesPerRow;
    EXPECT_EQ(CGDataProviderCopyData(image()), nullptr);
  }
  bytes_.reset();
  EXPECT_EQ(CGDataProviderCopyData(image()), nullptr);
  EXPECT_EQ(CGDataProviderCopyData(nullptr), nullptr);
}

TEST(MakeImage, copiesPaddedRowsAndRefusesImpossibleSizes) {
  std::array<std::byte, 20> pixels{};
  pixels[12] = std::byte{2};
  const CGImageRef image = makeImage(1, 2, 12, pixels.data());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->dataProvider()->bytes()->data()[4], std::byte{2});
  EXPECT_EQ(makeImage(2, 1, 7, pixels.data()), nullptr);
  EXPECT_EQ(makeImage(0, 1, 8, pixels.data()), nullptr);
  EXPECT_EQ(makeImage(65536, 1, 65536 * 4, pixels.data()), nullptr);
}

// The picture's first row is the upper one; the surface's origin is its lower left corner.
TEST(BitmapContext, drawsUnscaledPicturesByteForByteAndTheRightWayUp) {
  for (const Order& stored :
       {kBGRA, kRGBA, kStraightRGBA, order(CGImageAlphaInfo::premultipliedFirst, 0, {1, 2, 3, 0}),
        order(CGImageAlphaInfo::premultipliedLast, kLittle, {3, 2, 1, 0}),
        order(CGImageAlphaInfo::first, kLittle, {2, 1, 0, 3})}) {
    for (const std::size_t padding : {0U, 8U, 3U}) {
      SCOPED_TRACE(testing::Message() << "bitmap information " << stored.bitmapInfo << ", " << padding);
      const Canvas surface(4, 3, stored, padding);
      const Canvas picture(2, 2, kBGRA, padding);
      picture.set(0, 0, kRed);
      picture.set(1, 1, {12, 34, 56, 255});
      surface.draw(CGRectMake(1, 0, 2, 2), picture);
      EXPECT_EQ(surface.at(1, 1), kRed);
      EXPECT_EQ(surface.at(2, 2), (RGBA{12, 34, 56, 255}));
      EXPECT_EQ(surface.at(1, 0), kNothing);
    }
  }
}

TEST(BitmapContext, blendsOverWhatIsThereWithEitherKindOfAlpha) {
  const Canvas premultiplied(1, 1, kRGBA);
  premultiplied.set(0, 0, {0, 0, 128, 128});
  const Canvas straight(1, 1, kStraightRGBA);
  straight.set(0, 0, {0, 0, 255, 128});
  for (const Canvas& picture : {premultiplied, straight}) {
    const Canvas surface(1, 1);
    surface.set(0, 0, kRed);
    surface.draw(CGRectMake(0, 0, 1, 1), picture);
    EXPECT_EQ(surface.at(0, 0), (RGBA{127, 0, 128, 255}));
  }
}

TEST(BitmapContext, scalesAndClipsAndIgnoresRectanglesWithoutPixels) {
  const Canvas surface(6, 4);
  const Canvas picture(2, 1);
  picture.set(0, 0, kRed);
  picture.set(1, 0, kGreen);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const CGRect& rect : {CGRectNull, CGRectMake(0, 0, -2, 2), CGRectMake(nan, 0, 2, 2),
                             CGRectMake(6, 0, 2, 2), CGRectMake(-1e300, 0, 1e300, 1)}) {
    surface.draw(rect, picture);
    EXPECT_EQ(surface.at(0, 3), kNothing);
  }
  surface.draw(CGRectMake(-4, 2, 8, 40), picture);
  EXPECT_EQ(surface.at(3, 0), kGreen);
  EXPECT_GT(surface.at(0, 1)[0], 0);
  EXPECT_EQ(surface.at(4, 0), kNothing);
  EXPECT_EQ(surface.at(0, 2), kNothing);
}

TEST(BitmapContext, isRefusedForLayoutsOtherThan32BitColour) {
  std::array<std::byte, 64> bytes{};
  const auto accepts = [&](auto change) {
    CGImageLayout layout{.width = 4, .height = 4, .bytesPerRow = 16};
    change(layout);
    return PixmanImages().CGBitmapContextCreate(bytes.data(), layout) != nullptr;
  };
  EXPECT_TRUE(accepts([](CGImageLayout&) {}));
  EXPECT_FALSE(accepts([](CGImageLayout& layout) { layout.bitsPerPixel = 16; }));
  EXPECT_FALSE(accepts([](CGImageLayout& layout) { layout.bitsPerComponent = 10; }));
  EXPECT_FALSE(accepts([](CGImageLayout& layout) { layout.colorSpaceModel.reset(); }));
  EXPECT_FALSE(accepts([](CGImageLayout& layout) { layout.bytesPerRow = 15; }));
  constexpr auto alphaOnly = static_cast<std::uint32_t>(CGImageAlphaInfo::only);
  EXPECT_FALSE(accepts([](CGImageLayout& layout) { layout.bitmapInfo = alphaOnly; }));
}

}  // namespace
}  // namespace QelUtilVideo
