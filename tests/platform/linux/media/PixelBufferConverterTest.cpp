#include <QelUtilVideo/platform/PixelBufferConverter.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

namespace QelUtilVideo {
namespace {

constexpr OSType kVideo = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange;
constexpr OSType kFull = kCVPixelFormatType_420YpCbCr8BiPlanarFullRange;

using RGB = std::array<double, 3>;

/// Colours that differ from pixel to pixel.
RGB colorAt(std::size_t x, std::size_t y) {
  return {static_cast<double>((x * 37 + y * 11) % 256), static_cast<double>((x * 5 + y * 71) % 256),
          static_cast<double>((x * 3 + y * 29 + 90) % 256)};
}

double lumaOf(const RGB& color, OSType format) {
  const double luma = 0.299 * color[0] + 0.587 * color[1] + 0.114 * color[2];
  return format == kFull ? luma : 16 + luma * 219 / 255;
}

std::uint8_t byteAt(const CVPixelBuffer& buffer, std::size_t plane, std::size_t x, std::size_t y) {
  const PixelPlane& found = buffer.planes()[plane];
  return std::to_integer<std::uint8_t>(found.baseAddress[y * found.bytesPerRow + x]);
}

/// A buffer whose rows are padded by an odd number of bytes.
struct Source {
  Source(std::size_t width, std::size_t height, OSType format, std::size_t rowBytes) : row(rowBytes + 13) {
    bytes.resize(row * height);
    EXPECT_EQ(CVPixelBufferCreateWithBytes(width, height, format, bytes.data(), row, nullptr, buffer),
              kCVReturnSuccess);
  }
  void set(std::size_t offset, std::size_t y, double value) {
    bytes[y * row + offset] = static_cast<std::uint8_t>(value);
  }
  std::size_t row;
  std::vector<std::uint8_t> bytes;
  CVPixelBufferRef buffer;
};

/// Format and the bytes of red, green and blue within its pixels.
struct PackedCase {
  OSType format;
  std::array<std::size_t, 3> bytes;
};

TEST(PixelBufferConverter, lumaOfEveryPackedOrderIsWithinOneCodeValueOfTheExactOne) {
  for (const PackedCase& packed :
       {PackedCase{kCVPixelFormatType_32BGRA, {2, 1, 0}}, PackedCase{kCVPixelFormatType_32ARGB, {1, 2, 3}},
        PackedCase{kCVPixelFormatType_32ABGR, {3, 2, 1}}, PackedCase{kCVPixelFormatType_32RGBA, {0, 1, 2}}}) {
    for (const auto& [width, height] : {std::pair<std::size_t, std::size_t>{1, 1}, {67, 35}, {130, 16}}) {
      Source source(width, height, packed.format, 4 * width);
      for (std::size_t y = 0; y < height; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
          for (const std::size_t i : {0, 1, 2}) source.set(4 * x + packed.bytes[i], y, colorAt(x, y)[i]);
        }
      }
      for (const OSType format : {kVideo, kFull}) {
        SCOPED_TRACE(pixelFormatName(packed.format) + " to " + pixelFormatName(format));
        const CVPixelBufferRef converted = PixelBufferConverter(format).convert(source.buffer);
        ASSERT_TRUE(converted);
        ASSERT_EQ(converted->format(), format);
        for (std::size_t y = 0; y < height; ++y) {
          for (std::size_t x = 0; x < width; ++x) {
            ASSERT_NEAR(byteAt(*converted, 0, x, y), lumaOf(colorAt(x, y), format), 1);
          }
        }
      }
    }
  }
}

TEST(PixelBufferConverter, chromaComesFirstBlueThenRedAndCoversOddEdges) {
  Source source(3, 3, kCVPixelFormatType_32BGRA, 12);
  for (std::size_t y = 0; y < 3; ++y) {
    for (std::size_t x = 0; x < 3; ++x) source.set(4 * x + (x == 2 ? 2 : 0), y, 255);  // last column red
  }
  for (const auto& [format, high] : {std::pair{kVideo, 240}, std::pair{kFull, 255}}) {
    const CVPixelBufferRef converted = PixelBufferConverter(format).convert(source.buffer);
    for (std::size_t y = 0; y < 2; ++y) {
      EXPECT_NEAR(byteAt(*converted, 1, 0, y), high, 2);
      EXPECT_NEAR(byteAt(*converted, 1, 3, y), high, 2);
    }
  }
}

TEST(PixelBufferConverter, packedYUVKeepsItsLumaAndAveragesChromaOfTwoRows) {
  for (const bool lumaFirst : {false, true}) {
    const OSType from = lumaFirst ? kCVPixelFormatType_422YpCbCr8_yuvs : kCVPixelFormatType_422YpCbCr8;
    Source source(5, 3, from, 12);
    const std::size_t luma = lumaFirst ? 0 : 1;
    for (std::size_t y = 0; y < 3; ++y) {
      for (std::size_t x = 0; x < 6; ++x) {
        source.set(2 * x + luma, y, static_cast<double>(20 + 10 * x + y));
        source.set(2 * x + 1 - luma, y, static_cast<double>(x % 2 ? 200 : 100) + static_cast<double>(2 * y));
      }
    }
    const CVPixelBufferRef video = PixelBufferConverter().convert(source.buffer);
    for (std::size_t y = 0; y < 3; ++y) {
      for (std::size_t x = 0; x < 5; ++x) EXPECT_EQ(byteAt(*video, 0, x, y), 20 + 10 * x + y);
    }
    EXPECT_EQ(byteAt(*video, 1, 4, 0), 101);
    EXPECT_EQ(byteAt(*video, 1, 5, 0), 201);
    EXPECT_EQ(byteAt(*video, 1, 4, 1), 104);

    const CVPixelBufferRef full = PixelBufferConverter(kFull).convert(source.buffer);
    EXPECT_EQ(byteAt(*full, 0, 0, 0), 5);    // (20 - 16) x 255 / 219
    EXPECT_EQ(byteAt(*full, 1, 1, 0), 211);  // (201 - 128) x 255 / 224 + 128
  }
}

TEST(PixelBufferConverter, rangesConvertThereAndBack) {
  CVPixelBufferRef source;
  ASSERT_EQ(CVPixelBufferCreate(220, 2, kVideo, source), kCVReturnSuccess);
  for (const PixelPlane& plane : source->planes()) {
    for (std::size_t i = 0; i < plane.bytesPerRow * plane.height; ++i) {
      plane.baseAddress[i] = static_cast<std::byte>(16 + i % plane.bytesPerRow % 220);
    }
  }
  EXPECT_EQ(PixelBufferConverter().convert(source), source);
  const CVPixelBufferRef full = PixelBufferConverter(kFull).convert(source);
  EXPECT_EQ(byteAt(*full, 0, 0, 0), 0);
  EXPECT_EQ(byteAt(*full, 0, 219, 1), 255);
  EXPECT_EQ(byteAt(*full, 1, 112, 0), 128);
  const CVPixelBufferRef back = PixelBufferConverter(kVideo).convert(full);
  for (std::size_t x = 0; x < 220; ++x) {
    EXPECT_EQ(byteAt(*back, 0, x, 1), byteAt(*source, 0, x, 1));
    EXPECT_EQ(byteAt(*back, 1, x, 0), byteAt(*source, 1, x, 0));
  }
}

TEST(PixelBufferConverter, followsASourceThatChangesSize) {
  PixelBufferConverter converter(OSType{7});  // counts as video range
  EXPECT_EQ(converter.convert(nullptr), nullptr);
  for (const std::size_t width : {8U, 9U, 8U}) {
    const CVPixelBufferRef converted =
        converter.convert(Source(width, 4, kCVPixelFormatType_32BGRA, 4 * width).buffer);
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->width(), width);
    EXPECT_EQ(converted->format(), kVideo);
  }
}

}  // namespace
}  // namespace QelUtilVideo
