#include <QelUtilVideo/platform/CGImage.h>

#include "platform/Images.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>

namespace QelUtilVideo {
namespace {

namespace fs = std::filesystem;

class WritePNG : public testing::Test {
 protected:
  /// One pixel, its bytes in memory as given.
  static CGImage onePixel(std::array<std::uint8_t, 4> bytes, CGImageAlphaInfo alpha, std::uint32_t order) {
    CGImageLayout layout{.width = 1, .height = 1, .bytesPerRow = 4};
    layout.bitmapInfo = static_cast<std::uint32_t>(alpha) | order;
    auto memory = makeHeapBytes(4);
    std::memcpy(memory->data(), bytes.data(), 4);
    return CGImage(layout, std::move(memory));
  }

  /// Red, green, blue and straight alpha of the file's first pixel.
  std::array<std::uint8_t, 4> firstPixel() const {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    std::array<std::uint8_t, 4> pixel{};
    if (!png_image_begin_read_from_file(&image, path_.c_str())) return pixel;
    image.format = PNG_FORMAT_RGBA;
    png_image_finish_read(&image, nullptr, pixel.data(), 0, nullptr);
    return pixel;
  }

  const TemporaryFolder folder_;
  const std::string path_ = folder_.file("picture.png");
};

TEST_F(WritePNG, writesStraightAlphaWhateverTheOrder) {
  using RGBA = std::array<std::uint8_t, 4>;
  constexpr std::uint32_t kLittle = kCGBitmapByteOrder32Little;
  const auto written = [&](RGBA bytes, CGImageAlphaInfo alpha, std::uint32_t order) {
    EXPECT_EQ(writePNG(onePixel(bytes, alpha, order), path_), std::nullopt);
    return firstPixel();
  };
  EXPECT_EQ(written({10, 20, 30, 128}, CGImageAlphaInfo::premultipliedFirst, kLittle),
            (RGBA{60, 40, 20, 128}));
  EXPECT_EQ(written({128, 1, 2, 3}, CGImageAlphaInfo::first, 0), (RGBA{1, 2, 3, 128}));
  EXPECT_EQ(written({7, 3, 2, 1}, CGImageAlphaInfo::noneSkipLast, kLittle), (RGBA{1, 2, 3, 255}));
}

TEST_F(WritePNG, aFailureNamesTheFileAndLeavesEverythingAsItWas) {
  const CGImage image = onePixel({}, CGImageAlphaInfo::premultipliedFirst, 0);
  const std::string missing = folder_.file("missing/picture.png");
  const std::optional<NSError> error = writePNG(image, missing);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "QelUtilVideo.PNG");
  EXPECT_EQ(error->localizedDescription, "cannot write \"" + missing + "\": No such file or directory");

  (void)folder_.write("picture.png", "kept");
  CGImageLayout layout{.width = 1, .height = 1, .bitsPerPixel = 16, .bytesPerRow = 4};
  EXPECT_TRUE(writePNG(CGImage(layout, makeHeapBytes(4)), path_)) << "unsupported";
  layout.bitsPerPixel = 32;
  EXPECT_TRUE(writePNG(CGImage(layout, makeHeapBytes(3)), path_)) << "too few bytes";
  EXPECT_EQ(folder_.read("picture.png"), "kept");

  fs::remove(path_);
  fs::create_directory(path_);
  EXPECT_TRUE(writePNG(image, path_));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.file("")), fs::directory_iterator()), 1);
}

TEST_F(WritePNG, followsLinksAndSurvivesAPipeWithoutReader) {
  const CGImage image = onePixel({1, 2, 3, 255}, CGImageAlphaInfo::premultipliedLast, 0);
  fs::create_symlink(path_, folder_.file("link.png"));
  (void)folder_.write("picture.png", "old");
  EXPECT_EQ(writePNG(image, folder_.file("link.png")), std::nullopt);
  EXPECT_TRUE(fs::is_symlink(folder_.file("link.png")));
  EXPECT_EQ(firstPixel()[2], 3);

  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const std::string writing = "/proc/self/fd/" + std::to_string(ends[1]);
  EXPECT_EQ(writePNG(image, writing), std::nullopt);
  ::close(ends[0]);
  EXPECT_TRUE(writePNG(image, writing));
  ::close(ends[1]);
}

}  // namespace
}  // namespace QelUtilVideo
