#include "platform/linux/media/CameraFrameMaker.h"

#include "platform/linux/media/JpegDecoder.h"
#include "support/GuardedBytes.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <numeric>
#include <random>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace QelUtilVideo {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Size = std::pair<std::size_t, std::size_t>;

constexpr Size kSizes[]{{1, 1}, {1, 4}, {5, 3}, {66, 34}, {67, 35}, {130, 33}};
constexpr int kSubsamplings[]{TJSAMP_420, TJSAMP_422, TJSAMP_444, TJSAMP_440, TJSAMP_411, TJSAMP_GRAY};

/// A plane's bytes as they follow each other: luma of the first and the second column (0, 1), Cb, Cr (u, v),
/// the colours (r, g, b), nothing (x); and the pixels for which one such group stands.
struct Order {
  std::string_view letters;
  std::size_t across = 1;
  std::size_t down = 1;
};
struct Packing {
  CameraPixels pixels;
  std::vector<Order> planes;
};
const std::vector<Packing> kPackings{
    {CameraPixels::nv12, {{"0"}, {"uv", 2, 2}}},
    {CameraPixels::nv21, {{"0"}, {"vu", 2, 2}}},
    {CameraPixels::yuyv, {{"0u1v", 2}}},
    {CameraPixels::uyvy, {{"u0v1", 2}}},
    {CameraPixels::yvyu, {{"0v1u", 2}}},
    {CameraPixels::vyuy, {{"v0u1", 2}}},
    {CameraPixels::yuv420, {{"0"}, {"u", 2, 2}, {"v", 2, 2}}},
    {CameraPixels::yvu420, {{"0"}, {"v", 2, 2}, {"u", 2, 2}}},
    {CameraPixels::yuv422, {{"0"}, {"u", 2}, {"v", 2}}},
    {CameraPixels::rgb24, {{"rgb"}}},
    {CameraPixels::bgr24, {{"bgr"}}},
    {CameraPixels::bgrx, {{"bgrx"}}},
    {CameraPixels::rgbx, {{"rgbx"}}},
    {CameraPixels::xrgb, {{"xrgb"}}},
    {CameraPixels::grey, {{"0"}}},
};

std::uint8_t rounded(double value) { return static_cast<std::uint8_t>(std::floor(value + 0.5)); }

/// The known picture, in video range: its chroma is the same in each two by two pixels, and Cb is not Cr.
std::array<double, 3> colourAt(std::size_t x, std::size_t y) {
  return {60.0 + static_cast<double>(x / 2 + y), 118.0 + static_cast<double>(x / 4),
          140.0 - static_cast<double>(y / 2)};
}

std::uint8_t byteAt(char letter, std::size_t x, std::size_t y, bool isFullRange) {
  const auto colour = colourAt(letter == '1' ? x + 1 : x, y);
  const double luma = (colour[0] - 16) * 255 / 219;
  const double blue = (colour[1] - 128) * 255 / 224, red = (colour[2] - 128) * 255 / 224;
  if (letter == 'u') return rounded(isFullRange ? blue + 128 : colour[1]);
  if (letter == 'v') return rounded(isFullRange ? red + 128 : colour[2]);
  if (letter == 'r') return rounded(luma + 1.402 * red);
  if (letter == 'g') return rounded(luma - 0.344136 * blue - 0.714136 * red);
  if (letter == 'b') return rounded(luma + 1.772 * blue);
  return letter == 'x' ? 0xEE : rounded(isFullRange ? luma : colour[0]);
}

/// The known picture as a camera gives it, each plane exactly as long as it has to be.
struct Shot {
  CameraPicture picture;
  std::vector<std::unique_ptr<qeltest::GuardedBytes>> memory;

  Shot(const Packing& packing, Size size, bool isFullRange = false, std::size_t padding = 0)
      : picture{packing.pixels, size.first, size.second, isFullRange, {}} {
    for (const auto& [letters, across, down] : packing.planes) {
      const std::size_t row = (size.first + across - 1) / across * letters.size();
      const std::size_t rows = (size.second + down - 1) / down;
      Bytes bytes((row + padding) * (rows - 1) + row, 0xAA);
      for (std::size_t i = 0; i < row * rows; ++i) {
        const std::size_t at = i % row, y = i / row;
        bytes[y * (row + padding) + at] =
            byteAt(letters[at % letters.size()], at / letters.size() * across, y * down, isFullRange);
      }
      add(bytes, row + padding);
    }
  }
  void add(const Bytes& bytes, std::size_t bytesPerRow) {
    memory.push_back(std::make_unique<qeltest::GuardedBytes>(bytes.size()));
    const auto held = memory.back()->hold(bytes);
    picture.planes[memory.size() - 1] = {held.data(), held.size(), bytesPerRow};
  }
};

/// The known picture as a JPEG; `subsampling` is one of TJSAMP.
Bytes jpegOf(Size size, int subsampling, int flags = 0) {
  const int width = static_cast<int>(size.first), height = static_cast<int>(size.second);
  std::array<Bytes, 3> planes;
  for (int i = 0; i < (subsampling == TJSAMP_GRAY ? 1 : 3); ++i) {
    const int columns = tjPlaneWidth(i, width, subsampling), rows = tjPlaneHeight(i, height, subsampling);
    const int across = i == 0 ? 1 : tjMCUWidth[subsampling] / 8;
    const int down = i == 0 ? 1 : tjMCUHeight[subsampling] / 8;
    for (int at = 0; at < columns * rows; ++at) {
      const auto x = static_cast<std::size_t>(at % columns * across);
      const auto y = static_cast<std::size_t>(at / columns * down);
      planes[static_cast<std::size_t>(i)].push_back(byteAt("0uv"[i], x, y, true));
    }
  }
  const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), tjDestroy);
  const unsigned char* sources[]{planes[0].data(), planes[1].data(), planes[2].data()};
  unsigned char* file = nullptr;
  unsigned long length = 0;
  EXPECT_EQ(tjCompressFromYUVPlanes(encoder.get(), sources, width, nullptr, height, subsampling, &file,
                                    &length, 100, flags),
            0);
  const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owned(file, tjFree);
  return Bytes(file, file + length);
}

/// Where the segment with that marker begins; its length follows the two bytes.
Bytes::iterator segment(Bytes& file, std::uint8_t marker) {
  const Bytes wanted{0xFF, marker};
  return std::search(file.begin(), file.end(), wanted.begin(), wanted.end());
}

Bytes without(const Bytes& file, std::size_t lastBytes) {
  return Bytes(file.begin(), file.end() - static_cast<std::ptrdiff_t>(lastBytes));
}

/// Makes a frame of a file that lies before unreadable memory, and of which the camera says another size.
CVPixelBufferRef frameOf(CameraFrameMaker& maker, const Bytes& file) {
  qeltest::GuardedBytes memory(file.size());
  const auto held = memory.hold(file);
  CameraPicture picture{CameraPixels::motionJPEG, 640, 480, true, {}};
  picture.planes[0] = {held.data(), held.size(), 0};
  return maker.make(picture);
}

/// Fails unless the frame shows the known picture, or its luma where it has no chroma. Wipes it then, because
/// the next frame has its memory.
void expectPicture(const CVPixelBufferRef& frame, Size size, double tolerance, bool isGrey = false) {
  ASSERT_TRUE(frame);
  ASSERT_EQ(frame->format(), kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  ASSERT_EQ(Size(frame->width(), frame->height()), size);
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& found = frame->planes()[plane];
    for (std::size_t y = 0; y < found.height; ++y) {
      for (std::size_t x = 0; x < found.width * (plane + 1); ++x) {
        const auto colour = plane == 0 ? colourAt(x, y) : colourAt(x / 2 * 2, 2 * y);
        const double wanted = plane == 0 ? colour[0] : isGrey ? 128 : colour[1 + x % 2];
        ASSERT_NEAR(std::to_integer<int>(found.baseAddress[y * found.bytesPerRow + x]), wanted, tolerance)
            << "plane " << plane << " at " << x << ", " << y << " of " << size.first << " x " << size.second;
      }
    }
    std::fill_n(found.baseAddress, found.bytesPerRow * found.height, std::byte{0});
  }
}

TEST(CameraFrameMaker, everyPackingOfOnePictureGivesTheSameColours) {
  CameraFrameMaker maker;
  for (const Size& size : kSizes) {
    for (const Packing& packing : kPackings) {
      for (const bool isFullRange : {false, true}) {  // which does not concern red, green and blue
        for (const std::size_t padding : {0, 7}) {
          SCOPED_TRACE(testing::Message() << "pixels " << static_cast<int>(packing.pixels) << ", full "
                                          << isFullRange << ", padded " << padding);
          const Shot shot(packing, size, isFullRange, padding);
          ASSERT_NO_FATAL_FAILURE(
              expectPicture(maker.make(shot.picture), size, 2, packing.pixels == CameraPixels::grey));
        }
      }
    }
  }
}

TEST(CameraFrameMaker, fullRangeIsMappedToTheNearestCodeAndVideoRangeLeftAlone) {
  Bytes all(256);
  std::iota(all.begin(), all.end(), std::uint8_t{0});
  for (const bool isFullRange : {false, true}) {
    Shot shot({CameraPixels::nv12, {}}, {256, 1}, isFullRange);
    for (int planes = 0; planes < 2; ++planes) shot.add(all, 256);
    const CVPixelBufferRef frame = CameraFrameMaker().make(shot.picture);
    ASSERT_TRUE(frame);
    for (int i = 0; i < 256; ++i) {
      const int luma = isFullRange ? rounded(16 + 219.0 * i / 255) : i;
      const int chroma = isFullRange ? rounded(128 + 224.0 * (i - 128) / 255) : i;
      EXPECT_EQ(std::to_integer<int>(frame->planes()[0].baseAddress[i]), luma);
      EXPECT_EQ(std::to_integer<int>(frame->planes()[1].baseAddress[i]), chroma);
    }
  }
}

TEST(CameraFrameMaker, damagedPicturesAreRefused) {
  CameraFrameMaker maker;
  for (const Packing& packing : kPackings) {
    const Shot shot(packing, {5, 3}, false, 4);
    for (std::size_t plane = 0; plane < packing.planes.size(); ++plane) {
      SCOPED_TRACE(testing::Message()
                   << "pixels " << static_cast<int>(packing.pixels) << ", plane " << plane);
      const auto isRefused = [&](auto spoil) {
        CameraPicture spoilt = shot.picture;
        spoil(spoilt.planes[plane]);
        return maker.make(spoilt) == nullptr;
      };
      EXPECT_TRUE(isRefused([](CameraPlane& it) { it.size -= 1; }));
      EXPECT_TRUE(isRefused([](CameraPlane& it) { it.bytes = nullptr; }));
      EXPECT_TRUE(isRefused([](CameraPlane& it) { it.bytesPerRow = ~std::size_t{0} / 2 + 1; }));
      EXPECT_TRUE(isRefused([](CameraPlane& it) { it.bytesPerRow -= 5; }));  // one less than the row
    }
    for (const Size& size : {Size{0, 3}, {5, 0}, {16385, 1}, {1, 16385}}) {
      CameraPicture spoilt = shot.picture;
      std::tie(spoilt.width, spoilt.height) = size;
      for (CameraPlane& plane : spoilt.planes) plane.size = ~std::size_t{0};
      EXPECT_EQ(maker.make(spoilt), nullptr);
    }
  }
  CameraPicture unknown = Shot(kPackings[0], {5, 3}).picture;
  unknown.pixels = static_cast<CameraPixels>(99);
  EXPECT_EQ(maker.make(unknown), nullptr);
}

TEST(CameraFrameMaker, JPEGsOfEachSubsamplingGiveTheirPictureInTheirOwnSize) {
  CameraFrameMaker maker;
  for (const Size& size : kSizes) {
    for (const int subsampling : kSubsamplings) {
      for (const int flags : {0, TJFLAG_PROGRESSIVE}) {
        SCOPED_TRACE(testing::Message() << "subsampling " << subsampling << ", flags " << flags);
        ASSERT_NO_FATAL_FAILURE(expectPicture(frameOf(maker, jpegOf(size, subsampling, flags)), size, 4,
                                              subsampling == TJSAMP_GRAY));
      }
    }
  }
}

TEST(CameraFrameMaker, aFileThatChangesWhileItIsDecodedIsAsItWasAtFirst) {
  Bytes file = jpegOf({130, 66}, TJSAMP_420), other = jpegOf({130, 66}, TJSAMP_444);
  const std::size_t room = std::max(file.size(), other.size());
  file.resize(room);
  other.resize(room);
  JpegDecoder decoder;
  const auto frame = decoder.decode(std::as_bytes(std::span(file)), [&](std::size_t width,
                                                                        std::size_t height) {
    // The header has been read, the picture has not.
    file = other;
    CVPixelBufferRef made;
    EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, made), 0);
    return made;
  });
  expectPicture(frame, {130, 66}, 4);
}

TEST(CameraFrameMaker, missingHuffmanTablesAreTheUsualOnesWhateverCameBefore) {
  CameraFrameMaker maker;
  Bytes file = jpegOf({67, 35}, TJSAMP_422);
  for (auto at = segment(file, 0xC4); at != file.end(); at = segment(file, 0xC4)) {
    file.erase(at, at + 2 + (at[2] << 8 | at[3]));
  }
  // A progressive file has tables of its own.
  ASSERT_TRUE(frameOf(maker, jpegOf({67, 35}, TJSAMP_422, TJFLAG_PROGRESSIVE)));
  expectPicture(frameOf(maker, file), {67, 35}, 4);
}

TEST(CameraFrameMaker, bytesBetweenMarkersAreNoDamageButAMissingEndIs) {
  CameraFrameMaker maker;
  const Bytes file = jpegOf({67, 35}, TJSAMP_422);
  for (const std::uint8_t marker : Bytes{0xDB, 0xC4, 0xDA, 0xD9}) {
    SCOPED_TRACE(testing::Message() << "before marker " << static_cast<int>(marker));
    Bytes filled = file;
    filled.insert(segment(filled, marker), {0x12, 0x34, 0x56});
    expectPicture(frameOf(maker, filled), {67, 35}, 4);
    for (std::size_t cut = 1; cut < filled.size(); cut += 10)
      EXPECT_EQ(frameOf(maker, without(filled, cut)), nullptr);
  }
}

TEST(CameraFrameMaker, truncatedFilesAndOtherFilesAreRefused) {
  CameraFrameMaker maker;
  for (const int flags : {0, TJFLAG_PROGRESSIVE}) {
    const Bytes file = jpegOf({67, 35}, TJSAMP_420, flags);
    for (std::size_t cut = 1; cut <= file.size(); cut += cut < 10 ? 1 : 10) {
      EXPECT_EQ(frameOf(maker, without(file, cut)), nullptr) << cut << " of " << file.size();
    }
    Bytes huge = file;
    const auto size = segment(huge, flags ? 0xC2 : 0xC0) + 5;
    std::fill(size, size + 4, std::uint8_t{0x3F});
    EXPECT_EQ(frameOf(maker, huge), nullptr);
  }
  EXPECT_EQ(frameOf(maker, {0xFF, 0xD8, 0xFF, 0xD9}), nullptr);
  EXPECT_EQ(frameOf(maker, Bytes(5000, 'x')), nullptr);
  EXPECT_EQ(maker.make({CameraPixels::motionJPEG, 67, 35, true, {}}), nullptr);
}

TEST(CameraFrameMaker, flippedBytesGiveAFrameOrNone) {
  CameraFrameMaker maker;
  std::mt19937 random(1);
  for (const int subsampling : kSubsamplings) {
    const Bytes file = jpegOf({67, 35}, subsampling);
    for (int i = 0; i < 500; ++i) {
      Bytes flipped = file;
      for (int changes = 0; changes < 3; ++changes) {
        flipped[random() % flipped.size()] ^= static_cast<std::uint8_t>(1 + random() % 255);
      }
      const CVPixelBufferRef frame = frameOf(maker, flipped);
      EXPECT_TRUE(!frame || frame->format() == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    }
    ASSERT_NO_FATAL_FAILURE(expectPicture(frameOf(maker, file), {67, 35}, 4, subsampling == TJSAMP_GRAY));
  }
}

}  // namespace
}  // namespace QelUtilVideo
