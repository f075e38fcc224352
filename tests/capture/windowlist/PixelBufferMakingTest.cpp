#include "capture/windowlist/PixelBufferMaking.h"

#include "capture/windowlist/UsableImage.h"
#include "platform/Images.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <cstring>

namespace QelUtilVideo::windowlist {
namespace {

constexpr std::uint32_t kRed = 0xffff0000;  // as blue, green, red, alpha in memory
constexpr std::uint32_t kGrey = 0xff808080;

CGImageLayout layoutOf(std::size_t width, std::size_t height, std::size_t padding = 0) {
  CGImageLayout layout;
  layout.width = width;
  layout.height = height;
  layout.bytesPerRow = width * 4 + padding;
  return layout;
}

std::shared_ptr<CGImage> makePicture(const CGImageLayout& layout, std::uint32_t colour) {
  auto bytes = makeHeapBytes(layout.bytesPerRow * layout.height);
  for (std::size_t i = 0; i + 4 <= bytes->size(); i += 4) std::memcpy(bytes->data() + i, &colour, 4);
  return std::make_shared<CGImage>(layout, std::move(bytes));
}

std::uint32_t pixelAt(const CVPixelBuffer& buffer, std::size_t x, std::size_t y) {
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, buffer.planes()[0].baseAddress + y * buffer.planes()[0].bytesPerRow + x * 4, 4);
  return pixel;
}

class PixelBufferMakingTest : public testing::Test {
 protected:
  void showCursor(CGPoint location, CGPoint hotSpot, CGSize size) {
    const auto picture = makePicture(
        layoutOf(static_cast<std::size_t>(size.width), static_cast<std::size_t>(size.height)), kRed);
    machine->cursor().setCursor(NSCursor{std::make_shared<NSImage>(picture, size), hotSpot});
    machine->cursor().setLocation(location);
  }

  ScopedMachine machine;
};

TEST_F(PixelBufferMakingTest, bytesOfAnImageThatNobodyElseHoldsAreTakenAsTheyAreAndFreedWithTheBuffer) {
  auto image = makePicture(layoutOf(6, 4, 8), kGrey);
  const std::weak_ptr<ImageBytes> bytes = image->dataProvider()->bytes();
  const std::byte* address = bytes.lock()->data();
  showCursor({106, 50}, {0, 0}, {4, 4});  // just right of the area
  CVPixelBufferRef buffer = makePixelBuffer(*machine, std::move(image), CGRectMake(100, 48, 6, 4));
  ASSERT_TRUE(buffer);
  EXPECT_EQ(buffer->planes()[0].baseAddress, address);
  EXPECT_EQ(buffer->planes()[0].bytesPerRow, 32U);
  EXPECT_EQ(buffer->format(), kCVPixelFormatType_32BGRA);
  for (std::size_t i = 0; i < 32; ++i) EXPECT_EQ(pixelAt(*buffer, i % 8, i / 8), kGrey);
  EXPECT_FALSE(bytes.expired());
  buffer.reset();
  EXPECT_TRUE(bytes.expired());
}

TEST_F(PixelBufferMakingTest, cursorIsDrawnScaledWithItsHotSpotAtTheLocationAndNeverIntoAHeldImage) {
  // 20 × 10 points at (100, 50), two pixels per point; the cursor covers (105, 53) to (109, 56).
  showCursor({106, 55}, {1, 2}, {4, 3});
  const auto image = makePicture(layoutOf(40, 20), kGrey);
  const CVPixelBufferRef buffer = makePixelBuffer(*machine, image, CGRectMake(100, 50, 20, 10));
  ASSERT_TRUE(buffer);
  for (std::size_t y = 0; y < 20; ++y) {
    for (std::size_t x = 0; x < 40; ++x) {
      // The outermost pixels of the cursor and those around them may be smoothed.
      const bool inside = x >= 11 && x < 17 && y >= 7 && y < 11;
      const bool outside = x < 9 || x >= 19 || y < 5 || y >= 13;
      if (!inside && !outside) continue;
      EXPECT_EQ(pixelAt(*buffer, x, y), inside ? kRed : kGrey) << x << "," << y;
    }
  }
  // Somebody holds the image: its own bytes stay as they are.
  std::uint32_t original = 0;
  std::memcpy(&original, image->dataProvider()->bytes()->data() + (8 * 40 + 12) * 4, 4);
  EXPECT_EQ(original, kGrey);
}

TEST_F(PixelBufferMakingTest, cursorThatCannotBeDrawnLeavesTheBytesAlone) {
  const CGRect rect = CGRectMake(0, 0, 8, 8);
  CGImageLayout noColours = layoutOf(8, 8);
  noColours.colorSpaceModel.reset();
  const auto untouched = [&](const CGImageLayout& layout) {
    const auto buffer = makePixelBuffer(*machine, makePicture(layout, kGrey), rect);
    return buffer && pixelAt(*buffer, 2, 2) == kGrey;
  };
  showCursor({2, 2}, {0, 0}, {2, 2});
  EXPECT_FALSE(untouched(layoutOf(8, 8)));
  EXPECT_TRUE(untouched(noColours));
  const auto noBitmap = std::make_shared<NSImage>(nullptr, CGSize{2, 2});
  const std::vector<std::optional<NSCursor>> cursors{NSCursor{noBitmap, {}}, NSCursor{}, std::nullopt};
  for (const auto& cursor : cursors) {
    machine->cursor().setCursor(cursor);
    EXPECT_TRUE(untouched(layoutOf(8, 8)));
  }
}

TEST_F(PixelBufferMakingTest, formatFollowsAlphaPlaceAndByteOrder) {
  using enum CGImageAlphaInfo;
  const auto expectFormat = [&](CGImageAlphaInfo alpha, std::uint32_t order, OSType format) {
    CGImageLayout layout = layoutOf(2, 2);
    layout.bitmapInfo = static_cast<std::uint32_t>(alpha) | order;
    const auto buffer = makePixelBuffer(*machine, makePicture(layout, kGrey), CGRectZero);
    EXPECT_TRUE(buffer && buffer->format() == format) << layout.bitmapInfo;
  };
  for (const auto alpha : {premultipliedFirst, first, noneSkipFirst}) {
    expectFormat(alpha, kCGBitmapByteOrder32Little, kCVPixelFormatType_32BGRA);
    expectFormat(alpha, 0, kCVPixelFormatType_32ARGB);
  }
  for (const auto alpha : {none, premultipliedLast, last, noneSkipLast, only}) {
    expectFormat(alpha, kCGBitmapByteOrder32Little, kCVPixelFormatType_32ABGR);
    expectFormat(alpha, 0, kCVPixelFormatType_32RGBA);
  }
}

TEST(UsableImageTest, onlyRGBOf32BitsAndAtLeast2By2Counts) {
  using Layout = CGImageLayout;
  const auto usable = [](void (*change)(Layout&)) {
    Layout layout = layoutOf(2, 2);
    change(layout);
    return isUsableImage(CGImage(layout, std::shared_ptr<CGDataProvider>()));
  };
  EXPECT_TRUE(usable([](Layout&) {}));
  EXPECT_FALSE(usable([](Layout& l) { l.width = 1; }));
  EXPECT_FALSE(usable([](Layout& l) { l.height = 1; }));
  EXPECT_FALSE(usable([](Layout& l) { l.bitsPerPixel = 16; }));
  EXPECT_FALSE(usable([](Layout& l) { l.bitsPerComponent = 10; }));
  EXPECT_FALSE(usable([](Layout& l) { l.colorSpaceModel.reset(); }));
  EXPECT_FALSE(usable([](Layout& l) { l.colorSpaceModel = CGColorSpaceModel::indexed; }));
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
