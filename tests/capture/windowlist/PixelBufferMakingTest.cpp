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

constexpr std::uint32_t bits(CGImageAlphaInfo alpha, bool littleEndian) {
  return static_cast<std::uint32_t>(alpha) | (littleEndian ? kCGBitmapByteOrder32Little : 0);
}

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

TEST_F(PixelBufferMakingTest, anImageThatSomebodyHoldsIsNotDrawnInto) {
  const auto image = makePicture(layoutOf(8, 8), kGrey);
  showCursor({2, 2}, {0, 0}, {2, 2});
  const CVPixelBufferRef buffer = makePixelBuffer(*machine, image, CGRectMake(0, 0, 8, 8));
  ASSERT_TRUE(buffer);
  EXPECT_EQ(pixelAt(*buffer, 2, 2), kRed);
  std::uint32_t original = 0;
  std::memcpy(&original, image->dataProvider()->bytes()->data() + 2 * 32 + 2 * 4, 4);
  EXPECT_EQ(original, kGrey);
}

TEST_F(PixelBufferMakingTest, cursorIsDrawnWithItsHotSpotAtTheLocationScaledToTheImage) {
  // 20 × 10 points at (100, 50), two pixels per point; the cursor covers (105, 53) to (109, 56).
  showCursor({106, 55}, {1, 2}, {4, 3});
  const CVPixelBufferRef buffer =
      makePixelBuffer(*machine, makePicture(layoutOf(40, 20), kGrey), CGRectMake(100, 50, 20, 10));
  ASSERT_TRUE(buffer);
  for (std::size_t y = 0; y < 20; ++y) {
    for (std::size_t x = 0; x < 40; ++x) {
      const bool inside = x >= 10 && x < 18 && y >= 6 && y < 12;
      const bool edge = !inside && x >= 9 && x < 19 && y >= 5 && y < 13;  // may be smoothed
      if (!edge && !(inside && (x == 10 || x == 17 || y == 6 || y == 11))) {
        EXPECT_EQ(pixelAt(*buffer, x, y), inside ? kRed : kGrey) << x << "," << y;
      }
    }
  }
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
  for (const bool little : {true, false}) {
    for (const auto alpha :
         {none, premultipliedLast, premultipliedFirst, last, first, noneSkipLast, noneSkipFirst, only}) {
      CGImageLayout layout = layoutOf(2, 2);
      layout.bitmapInfo = bits(alpha, little);
      const auto buffer = makePixelBuffer(*machine, makePicture(layout, kGrey), CGRectZero);
      ASSERT_TRUE(buffer);
      const bool alphaFirst = alpha == premultipliedFirst || alpha == first || alpha == noneSkipFirst;
      EXPECT_EQ(buffer->format(), alphaFirst
                                      ? (little ? kCVPixelFormatType_32BGRA : kCVPixelFormatType_32ARGB)
                                      : (little ? kCVPixelFormatType_32ABGR : kCVPixelFormatType_32RGBA));
    }
  }
}

TEST_F(PixelBufferMakingTest, imagesWithoutEnoughBytesGiveNothing) {
  EXPECT_FALSE(makePixelBuffer(*machine, nullptr, CGRectZero));
  EXPECT_FALSE(makePixelBuffer(
      *machine, std::make_shared<CGImage>(layoutOf(2, 2), std::shared_ptr<CGDataProvider>()), CGRectZero));
  EXPECT_FALSE(
      makePixelBuffer(*machine, std::make_shared<CGImage>(layoutOf(2, 2), makeHeapBytes(15)), CGRectZero));
  CGImageLayout sixteenBit = layoutOf(4, 4);
  sixteenBit.bitsPerPixel = 16;
  sixteenBit.bytesPerRow = 8;
  EXPECT_FALSE(makePixelBuffer(*machine, makePicture(sixteenBit, 0), CGRectZero));
}

TEST(UsableImageTest, onlyRGBOf32BitsAndAtLeast2By2Counts) {
  const auto usable = [](auto&& change) {
    CGImageLayout layout = layoutOf(2, 2);
    change(layout);
    return isUsableImage(CGImage(layout, std::shared_ptr<CGDataProvider>()));
  };
  EXPECT_TRUE(usable([](CGImageLayout&) {}));
  EXPECT_FALSE(usable([](CGImageLayout& l) { l.width = 1; }));
  EXPECT_FALSE(usable([](CGImageLayout& l) { l.height = 1; }));
  EXPECT_FALSE(usable([](CGImageLayout& l) { l.bitsPerPixel = 16; }));
  EXPECT_FALSE(usable([](CGImageLayout& l) { l.bitsPerComponent = 10; }));
  EXPECT_FALSE(usable([](CGImageLayout& l) { l.colorSpaceModel.reset(); }));
  EXPECT_FALSE(usable([](CGImageLayout& l) { l.colorSpaceModel = CGColorSpaceModel::indexed; }));
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
