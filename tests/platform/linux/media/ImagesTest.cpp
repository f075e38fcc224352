#include "platform/linux/media/PixmanImages.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <vector>

namespace QelUtilVideo {
namespace {

constexpr std::uint32_t kLittle = kCGBitmapByteOrder32Little;

std::uint32_t bitmapInfoOf(CGImageAlphaInfo alpha, std::uint32_t order = 0) {
  return static_cast<std::uint32_t>(alpha) | order;
}

/// A picture in memory that is built pixel by pixel from red, green, blue and alpha.
struct Canvas {
  using RGBA = std::array<std::uint8_t, 4>;

  explicit Canvas(std::size_t width, std::size_t height, std::uint32_t bitmapInfo, std::size_t padding = 0) {
    layout.width = width;
    layout.height = height;
    layout.bytesPerRow = 4 * width + padding;
    layout.bitmapInfo = bitmapInfo;
    bytes = makeHeapBytes(layout.bytesPerRow * height);
    std::memset(bytes->data(), 0, bytes->size());
  }
  std::byte* pixel(std::size_t x, std::size_t y) const {
    return bytes->data() + y * layout.bytesPerRow + 4 * x;
  }
  /// Byte of red, green, blue and alpha within a pixel.
  std::array<std::size_t, 4> order() const {
    const auto alpha = static_cast<CGImageAlphaInfo>(layout.bitmapInfo & kCGBitmapAlphaInfoMask);
    const bool first = alpha == CGImageAlphaInfo::premultipliedFirst || alpha == CGImageAlphaInfo::first ||
                       alpha == CGImageAlphaInfo::noneSkipFirst;
    if (layout.bitmapInfo & kLittle) {
      return first ? std::array<std::size_t, 4>{2, 1, 0, 3} : std::array<std::size_t, 4>{3, 2, 1, 0};
    }
    return first ? std::array<std::size_t, 4>{1, 2, 3, 0} : std::array<std::size_t, 4>{0, 1, 2, 3};
  }
  void set(std::size_t x, std::size_t y, RGBA color) const {
    for (std::size_t i = 0; i < 4; ++i) pixel(x, y)[order()[i]] = std::byte{color[i]};
  }
  RGBA at(std::size_t x, std::size_t y) const {
    RGBA color{};
    for (std::size_t i = 0; i < 4; ++i) color[i] = std::to_integer<std::uint8_t>(pixel(x, y)[order()[i]]);
    return color;
  }
  CGImage image() const { return CGImage(layout, bytes); }
  void draw(const CGRect& rect, const Canvas& picture) const {
    PixmanImages().CGBitmapContextCreate(bytes->data(), layout)->CGContextDrawImage(rect, picture.image());
  }

  CGImageLayout layout;
  std::shared_ptr<ImageBytes> bytes;
};

constexpr Canvas::RGBA kRed{255, 0, 0, 255};
constexpr Canvas::RGBA kGreen{0, 255, 0, 255};
constexpr Canvas::RGBA kHalfBlue{0, 0, 128, 128};
constexpr Canvas::RGBA kNothing{0, 0, 0, 0};

class CopyData : public testing::Test {
 protected:
  std::shared_ptr<ImageBytes> bytes_ = makeHeapBytes(16);
  CGImageLayout layout_ = {.width = 2, .height = 2, .bytesPerRow = 8};
};

TEST_F(CopyData, takesBytesThatNobodyElseSees) {
  const std::byte* address = bytes_->data();
  auto image = std::make_shared<CGImage>(layout_, std::move(bytes_));
  EXPECT_EQ(CGDataProviderCopyData(std::move(image))->data(), address);
}

TEST_F(CopyData, copiesWhatSomebodyElseHolds) {
  std::memset(bytes_->data(), 42, 16);
  auto image = std::make_shared<CGImage>(layout_, bytes_);
  const std::shared_ptr<ImageBytes> copy = CGDataProviderCopyData(image);
  EXPECT_NE(copy->data(), bytes_->data());
  EXPECT_EQ(std::memcmp(copy->data(), bytes_->data(), 16), 0);

  const std::shared_ptr<CGDataProvider> provider = image->dataProvider();
  const std::byte* address = bytes_->data();
  bytes_.reset();
  EXPECT_NE(CGDataProviderCopyData(std::move(image))->data(), address);
}

TEST_F(CopyData, refusesAnImageWithTooFewBytes) {
  layout_.bytesPerRow = 9;
  EXPECT_EQ(CGDataProviderCopyData(std::make_shared<CGImage>(layout_, bytes_)), nullptr);
  layout_.bytesPerRow = SIZE_MAX / 2;
  EXPECT_EQ(CGDataProviderCopyData(std::make_shared<CGImage>(layout_, bytes_)), nullptr);
  EXPECT_EQ(CGDataProviderCopyData(std::make_shared<CGImage>(layout_, std::shared_ptr<ImageBytes>())),
            nullptr);
  EXPECT_EQ(CGDataProviderCopyData(nullptr), nullptr);
}

TEST(MakeImage, copiesPaddedRowsAndRefusesImpossibleSizes) {
  const std::array<std::byte, 20> pixels{std::byte{1}, {}, {}, {}, {}, {},          {},
                                         {},           {}, {}, {}, {}, std::byte{2}};
  const CGImageRef image = makeImage(1, 2, 12, pixels.data());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->dataProvider()->bytes()->data()[4], std::byte{2});
  EXPECT_EQ(makeImage(2, 1, 7, pixels.data()), nullptr);
  EXPECT_EQ(makeImage(0, 1, 8, pixels.data()), nullptr);
  EXPECT_EQ(makeImage(65536, 1, 65536 * 4, pixels.data()), nullptr);
}

class BitmapContext : public testing::TestWithParam<std::uint32_t> {};

// The picture's first row is the upper one; the surface's origin is its lower left corner.
TEST_P(BitmapContext, drawsUnscaledPicturesByteForByteAndTheRightWayUp) {
  for (const std::size_t padding : {0U, 8U, 3U}) {
    const Canvas surface(4, 3, GetParam(), padding);
    Canvas picture(2, 2, bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle), padding);
    picture.set(0, 0, kRed);
    picture.set(1, 1, {12, 34, 56, 255});
    surface.draw(CGRectMake(1, 0, 2, 2), picture);
    EXPECT_EQ(surface.at(1, 1), kRed);
    EXPECT_EQ(surface.at(2, 2), (Canvas::RGBA{12, 34, 56, 255}));
    EXPECT_EQ(surface.at(1, 0), kNothing);
  }
}

INSTANTIATE_TEST_SUITE_P(Orders, BitmapContext,
                         testing::Values(bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle),
                                         bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst),
                                         bitmapInfoOf(CGImageAlphaInfo::premultipliedLast, kLittle),
                                         bitmapInfoOf(CGImageAlphaInfo::premultipliedLast),
                                         bitmapInfoOf(CGImageAlphaInfo::last),
                                         bitmapInfoOf(CGImageAlphaInfo::first, kLittle)));

TEST(BitmapContextDrawing, blendsOverWhatIsThereWithEitherKindOfAlpha) {
  const Canvas surface(2, 1, bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle));
  surface.set(0, 0, kRed);
  surface.set(1, 0, kRed);
  const Canvas premultiplied(1, 1, bitmapInfoOf(CGImageAlphaInfo::premultipliedLast));
  premultiplied.set(0, 0, kHalfBlue);
  const Canvas straight(1, 1, bitmapInfoOf(CGImageAlphaInfo::last));
  straight.set(0, 0, {0, 0, 255, 128});
  surface.draw(CGRectMake(0, 0, 1, 1), premultiplied);
  surface.draw(CGRectMake(1, 0, 1, 1), straight);
  EXPECT_EQ(surface.at(0, 0), (Canvas::RGBA{127, 0, 128, 255}));
  EXPECT_EQ(surface.at(1, 0), surface.at(0, 0));
}

TEST(BitmapContextDrawing, scalesAndClips) {
  const Canvas surface(6, 4, bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle));
  const Canvas picture(2, 1, bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle));
  picture.set(0, 0, kRed);
  picture.set(1, 0, kGreen);
  surface.draw(CGRectMake(-4, 2, 8, 40), picture);
  EXPECT_EQ(surface.at(3, 0), kGreen);
  EXPECT_GT(surface.at(0, 1)[0], 0);
  EXPECT_EQ(surface.at(4, 0), kNothing);
  EXPECT_EQ(surface.at(0, 2), kNothing);
}

TEST(BitmapContextDrawing, ignoresRectanglesWithoutPixels) {
  const Canvas surface(4, 4, bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle));
  const Canvas picture(1, 1, bitmapInfoOf(CGImageAlphaInfo::premultipliedFirst, kLittle));
  picture.set(0, 0, kRed);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const CGRect& rect : {CGRectNull, CGRectMake(0, 0, -2, 2), CGRectMake(nan, 0, 2, 2),
                             CGRectMake(4, 0, 2, 2), CGRectMake(-1e300, 0, 1e300, 1)}) {
    surface.draw(rect, picture);
  }
  EXPECT_EQ(surface.at(0, 0), kNothing);
  EXPECT_EQ(surface.at(0, 3), kNothing);
}

TEST(BitmapContextCreation, refusesLayoutsOtherThan32BitColour) {
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
  EXPECT_FALSE(
      accepts([](CGImageLayout& layout) { layout.bitmapInfo = bitmapInfoOf(CGImageAlphaInfo::only); }));
}

}  // namespace
}  // namespace QelUtilVideo
