#include "platform/linux/media/CameraFrameMaker.h"

#include <gtest/gtest.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace QelUtilVideo {
namespace {

using Bytes = std::vector<std::byte>;

struct Code {
  int y, cb, cr;
};

/// Bytes of one colour in each kind of pixels, each plane as long as it has to be and no longer.
struct Sample {
  Sample(CameraPixels pixels, std::size_t width, std::size_t height, Code code, std::size_t padding = 0)
      : picture{pixels, width, height, false, {}} {
    const std::size_t half = (width + 1) / 2, halfHeight = (height + 1) / 2;
    const auto [y, u, v] = code;
    switch (pixels) {
      case CameraPixels::nv12:
      case CameraPixels::nv21:
        add({y}, width, height, padding);
        pixels == CameraPixels::nv12 ? add({u, v}, 2 * half, halfHeight, padding)
                                     : add({v, u}, 2 * half, halfHeight, padding);
        break;
      case CameraPixels::yuv420:
      case CameraPixels::yvu420:
      case CameraPixels::yuv422: {
        const std::size_t rows = pixels == CameraPixels::yuv422 ? height : halfHeight;
        const bool isSwapped = pixels == CameraPixels::yvu420;
        add({y}, width, height, padding);
        add({isSwapped ? v : u}, half, rows, padding);
        add({isSwapped ? u : v}, half, rows, padding);
        break;
      }
      case CameraPixels::yuyv:
        add({y, u, y, v}, 4 * half, height, padding);
        break;
      case CameraPixels::uyvy:
        add({u, y, v, y}, 4 * half, height, padding);
        break;
      case CameraPixels::yvyu:
        add({y, v, y, u}, 4 * half, height, padding);
        break;
      case CameraPixels::vyuy:
        add({v, y, u, y}, 4 * half, height, padding);
        break;
      default:
        add({y}, width, height, padding);
        break;
    }
  }
  /// Rows of a colour whose bytes are given.
  Sample(CameraPixels pixels, std::size_t width, std::size_t height, std::initializer_list<int> pattern)
      : picture{pixels, width, height, false, {}} {
    add(pattern, width * pattern.size(), height, 0);
  }

  CameraPicture picture;
  std::vector<std::unique_ptr<Bytes>> memory;

 private:
  void add(std::initializer_list<int> pattern, std::size_t row, std::size_t rows, std::size_t padding) {
    // The last row has no padding.
    auto bytes = std::make_unique<Bytes>((row + padding) * (rows - 1) + row);
    for (std::size_t i = 0; i < bytes->size(); ++i) {
      const std::size_t x = i % (row + padding);
      (*bytes)[i] = static_cast<std::byte>(x < row ? pattern.begin()[x % pattern.size()] : 0xee);
    }
    picture.planes[memory.size()] = {bytes->data(), bytes->size(), row + padding};
    memory.push_back(std::move(bytes));
  }
};

void expectColour(const CVPixelBufferRef& frame, std::size_t width, std::size_t height, Code code,
                  int tolerance) {
  ASSERT_TRUE(frame);
  ASSERT_EQ(frame->format(), kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  ASSERT_EQ(frame->width(), width);
  ASSERT_EQ(frame->height(), height);
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& rows = frame->planes()[plane];
    for (std::size_t i = 0; i < rows.height * rows.width * (plane + 1); ++i) {
      const std::size_t row = rows.width * (plane + 1), x = i % row;
      const int expected = plane == 0 ? code.y : x % 2 ? code.cr : code.cb;
      ASSERT_NEAR(std::to_integer<int>(rows.baseAddress[i / row * rows.bytesPerRow + x]), expected, tolerance)
          << "plane " << plane << ", byte " << x << " of row " << i / row;
    }
  }
}

constexpr std::array kYuv{CameraPixels::nv12,   CameraPixels::nv21,   CameraPixels::yuv420,
                          CameraPixels::yvu420, CameraPixels::yuv422, CameraPixels::yuyv,
                          CameraPixels::uyvy,   CameraPixels::yvyu,   CameraPixels::vyuy};

TEST(CameraFrameMaker, putsEachByteInItsPlaceWhateverTheSizeAndTheRows) {
  CameraFrameMaker maker;
  constexpr Code code{90, 60, 200};
  for (const CameraPixels pixels : kYuv) {
    for (const auto& [width, height] :
         {std::pair(64, 48), std::pair(33, 17), std::pair(2, 1), std::pair(1, 1)}) {
      for (const std::size_t padding : {0, 12}) {
        SCOPED_TRACE(std::to_string(static_cast<int>(pixels)) + " " + std::to_string(width));
        const auto w = static_cast<std::size_t>(width), h = static_cast<std::size_t>(height);
        const Sample sample(pixels, w, h, code, padding);
        expectColour(maker.make(sample.picture), w, h, code, 0);
      }
    }
  }
  expectColour(maker.make(Sample(CameraPixels::grey, 5, 3, Code{77, 0, 0}).picture), 5, 3, {77, 128, 128}, 0);
  // 200, 100, 50 by the formula of BT.601.
  constexpr Code orange{123, 91, 175};
  expectColour(maker.make(Sample(CameraPixels::rgb24, 35, 21, {200, 100, 50}).picture), 35, 21, orange, 2);
  expectColour(maker.make(Sample(CameraPixels::bgr24, 35, 21, {50, 100, 200}).picture), 35, 21, orange, 2);
  expectColour(maker.make(Sample(CameraPixels::bgrx, 35, 21, {50, 100, 200, 9}).picture), 35, 21, orange, 2);
  expectColour(maker.make(Sample(CameraPixels::rgbx, 35, 21, {200, 100, 50, 9}).picture), 35, 21, orange, 2);
  expectColour(maker.make(Sample(CameraPixels::xrgb, 35, 21, {9, 200, 100, 50}).picture), 35, 21, orange, 2);
}

TEST(CameraFrameMaker, narrowsFullRange) {
  CameraFrameMaker maker;
  for (const CameraPixels pixels : kYuv) {
    Sample sample(pixels, 16, 8, Code{255, 0, 255});
    sample.picture.isFullRange = true;
    expectColour(maker.make(sample.picture), 16, 8, {235, 16, 240}, 0);
  }
}

TEST(CameraFrameMaker, refusesWhatIsDamagedAndReadsNothingBeyondIt) {
  CameraFrameMaker maker;
  for (const CameraPixels pixels : kYuv) {
    for (std::size_t plane = 0; plane < 3; ++plane) {
      Sample sample(pixels, 33, 17, Code{1, 2, 3});
      if (plane >= sample.memory.size()) continue;
      const Bytes shorter(sample.memory[plane]->begin(), sample.memory[plane]->end() - 1);
      sample.picture.planes[plane].bytes = shorter.data();
      sample.picture.planes[plane].size = shorter.size();
      EXPECT_FALSE(maker.make(sample.picture));
      sample.picture.planes[plane].bytesPerRow = 3;
      EXPECT_FALSE(maker.make(sample.picture));
    }
    for (const auto& [width, height] : {std::pair(0, 5), std::pair(5, 0), std::pair(16385, 1)}) {
      Sample sample(pixels, 8, 8, Code{1, 2, 3});
      sample.picture.width = static_cast<std::size_t>(width);
      sample.picture.height = static_cast<std::size_t>(height);
      EXPECT_FALSE(maker.make(sample.picture));
    }
  }
  EXPECT_FALSE(maker.make({}));
}

Bytes jpeg(int width, int height, int subsampling) {
  std::vector<unsigned char> pixels(static_cast<std::size_t>(3 * width * height));
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = std::array<unsigned char, 3>{200, 100, 50}[i % 3];
  unsigned char* file = nullptr;
  unsigned long size = 0;
  const tjhandle compressor = tjInitCompress();
  EXPECT_EQ(
      tjCompress2(compressor, pixels.data(), width, 0, height, TJPF_RGB, &file, &size, subsampling, 95, 0),
      0);
  const auto* first = reinterpret_cast<const std::byte*>(file);
  Bytes bytes(first, first + size);
  tjFree(file);
  tjDestroy(compressor);
  return bytes;
}

CVPixelBufferRef decode(CameraFrameMaker& maker, const Bytes& file) {
  CameraPicture picture{CameraPixels::motionJPEG, 640, 480, false, {}};
  picture.planes[0] = {file.data(), file.size(), 0};
  return maker.make(picture);
}

/// Without one kind of its segments.
Bytes without(const Bytes& file, int marker) {
  Bytes rest(file.begin(), file.begin() + 2);
  std::size_t at = 2;
  while (at + 4 < file.size() && std::to_integer<int>(file[at + 1]) != 0xda) {
    const auto length = static_cast<std::size_t>(std::to_integer<int>(file[at + 2]) << 8 |
                                                 std::to_integer<int>(file[at + 3]));
    if (std::to_integer<int>(file[at + 1]) != marker)
      rest.insert(rest.end(), &file[at], &file[at] + 2 + length);
    at += 2 + length;
  }
  rest.insert(rest.end(), file.begin() + static_cast<std::ptrdiff_t>(at), file.end());
  return rest;
}

TEST(CameraFrameMaker, decodesJpegsOfEachSamplingWithOrWithoutTables) {
  CameraFrameMaker maker;
  constexpr Code orange{123, 91, 175};
  for (const int subsampling : {TJSAMP_420, TJSAMP_422, TJSAMP_444, TJSAMP_440, TJSAMP_411}) {
    for (const auto& [width, height] : {std::pair(64, 48), std::pair(33, 17), std::pair(1, 1)}) {
      SCOPED_TRACE(subsampling);
      const Bytes file = jpeg(width, height, subsampling);
      const auto w = static_cast<std::size_t>(width), h = static_cast<std::size_t>(height);
      expectColour(decode(maker, file), w, h, orange, 3);
      constexpr int huffmanTables = 0xc4;
      expectColour(decode(maker, without(file, huffmanTables)), w, h, orange, 3);
    }
  }
  expectColour(decode(maker, jpeg(33, 17, TJSAMP_GRAY)), 33, 17, {122, 128, 128}, 3);
  // Many cameras leave bytes between the end of the picture and its marker.
  Bytes loose = jpeg(64, 48, TJSAMP_422);
  loose.insert(loose.end() - 2, 5, std::byte{0});
  EXPECT_TRUE(decode(maker, loose));
}

TEST(CameraFrameMaker, refusesBrokenJpegsAndLivesOn) {
  CameraFrameMaker maker;
  const Bytes file = jpeg(160, 120, TJSAMP_422);
  for (std::size_t size = 0; size + 10 < file.size(); size += 7) {
    const Bytes cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_FALSE(decode(maker, cut)) << size;
  }
  for (const auto& text :
       {std::string("\xff\xd8\xff\xd9"), std::string("not a picture"), std::string(1, '\xff')}) {
    Bytes bytes(text.size());
    std::ranges::transform(text, bytes.begin(), [](char byte) { return static_cast<std::byte>(byte); });
    EXPECT_FALSE(decode(maker, bytes));
  }
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same each time
  for (int i = 0; i < 300; ++i) {
    Bytes noisy = file;
    for (int j = 0; j < 5; ++j) noisy[random() % noisy.size()] = static_cast<std::byte>(random());
    (void)decode(maker, noisy);
  }
  EXPECT_TRUE(decode(maker, file));
}

}  // namespace
}  // namespace QelUtilVideo
