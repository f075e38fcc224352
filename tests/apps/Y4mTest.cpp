#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "Failure.h"
#include "PixelBufferLock.h"
#include "Y4mReader.h"
#include "Y4mWriter.h"
#include "support/TemporaryFolder.h"

using namespace QelUtilVideo;
using namespace qelvideo;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

auto failsWith(const std::string& text) { return testing::ThrowsMessage<Failure>(testing::HasSubstr(text)); }

std::unique_ptr<Y4mReader> open(const std::string& path) {
  return std::make_unique<Y4mReader>(ByteInput::open(path, std::make_shared<Cancellation>()));
}

/// Bytes that count up, so that every sample of a small frame is another.
std::string counting(std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(16 + i % 200);
  return bytes;
}

int sample(const PixelPlane& plane, std::size_t x, std::size_t y) {
  return std::to_integer<int>(plane.baseAddress[y * plane.bytesPerRow + x]);
}

}  // namespace

TEST(Y4mHeader, readsSizeRateAndRangeAndIgnoresWhatDoesNotMatter) {
  const Y4mHeader header =
      Y4mHeader::parse("YUV4MPEG2 W5 H3 F30000:1001 It A0:0 C420mpeg2 XYSCSS=420MPEG2 XCOLORRANGE=FULL");
  EXPECT_EQ(header.width, 5U);
  EXPECT_EQ(header.height, 3U);
  EXPECT_DOUBLE_EQ(header.frameDuration(), 1001.0 / 30000);
  EXPECT_TRUE(header.fullRange);
  EXPECT_EQ(header.frameSize(), 15U + 2 * 6);
  const std::string written = header.text();
  EXPECT_EQ(Y4mHeader::parse(written.substr(0, written.size() - 1)), header);

  const Y4mHeader plain = Y4mHeader::parse("YUV4MPEG2 H16384 W1 F0:0");
  EXPECT_EQ(plain.width, 1U);
  EXPECT_EQ(plain.height, 16384U);
  EXPECT_DOUBLE_EQ(plain.frameDuration(), 0.04);
  EXPECT_FALSE(plain.fullRange);
}

TEST(Y4mHeader, refusesWithAReasonThatNamesTheFault) {
  const Pairs cases{{"", "YUV4MPEG2"},
                    {"RIFF....AVI", "YUV4MPEG2"},
                    {"YUV4MPEG22 W2 H2", "YUV4MPEG2"},
                    {"YUV4MPEG2", "width"},
                    {"YUV4MPEG2 W2", "height"},
                    {"YUV4MPEG2 W0 H2", "W0"},
                    {"YUV4MPEG2 W-4 H2", "W-4"},
                    {"YUV4MPEG2 W2 H16385", "H16385"},
                    {"YUV4MPEG2 W99999999999999999999 H2", "W999"},
                    {"YUV4MPEG2 W2x H2", "W2x"},
                    {"YUV4MPEG2 W2 H2 F", "\"F\""},
                    {"YUV4MPEG2 W2 H2 F25", "F25"},
                    {"YUV4MPEG2 W2 H2 F25:0", "F25:0"},
                    {"YUV4MPEG2 W2 H2 F-25:1", "F-25:1"},
                    {"YUV4MPEG2 W2 H2 C444", "C444"},
                    {"YUV4MPEG2 W2 H2 C420p10", "ffmpeg"},
                    {"YUV4MPEG2 W2 H2 Q7", "Q7"}};
  for (const auto& refused : cases) {
    EXPECT_THAT([&] { static_cast<void>(Y4mHeader::parse(refused.first)); }, failsWith(refused.second))
        << refused.first;
  }
}

TEST(Y4mReader, putsEverySampleOfAnOddSizeInItsPlace) {
  const TemporaryFolder folder;
  const std::string planes = counting(15 + 2 * 6);
  const auto film =
      open(folder.write("odd.y4m", "YUV4MPEG2 W3 H5 F25:1\nFRAME\n" + planes + "FRAME Ip\n" + planes));
  for (int frame = 0; frame < 2; ++frame) {
    const CVPixelBufferRef picture = film->next();
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->format(), kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    const PixelPlane& luma = picture->planes()[0];
    const PixelPlane& chroma = picture->planes()[1];
    for (std::size_t i = 0; i < 15; ++i) EXPECT_EQ(sample(luma, i % 3, i / 3), 16 + static_cast<int>(i));
    for (std::size_t i = 0; i < 6; ++i) {
      EXPECT_EQ(sample(chroma, i % 2 * 2, i / 2), 31 + static_cast<int>(i));
      EXPECT_EQ(sample(chroma, i % 2 * 2 + 1, i / 2), 37 + static_cast<int>(i));
    }
  }
  EXPECT_FALSE(film->next());
}

TEST(Y4mReader, bringsFullRangeToVideoRange) {
  const TemporaryFolder folder;
  const std::string film = "YUV4MPEG2 W2 H1 XCOLORRANGE=FULL\nFRAME\n" + std::string("\x00\xff\x80\x80", 4);
  const CVPixelBufferRef picture = open(folder.write("full.y4m", film))->next();
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->format(), kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  EXPECT_EQ(sample(picture->planes()[0], 0, 0), 16);
  EXPECT_EQ(sample(picture->planes()[0], 1, 0), 235);
}

TEST(Y4mReader, givesTheGoodFramesBeforeItFails) {
  const TemporaryFolder folder;
  const std::string header = "YUV4MPEG2 W2 H2\n";
  const std::string frame = "FRAME\n" + counting(6);
  const Pairs tails{
      {"FRAME\nabc", "cut short: 3 of 6"},
      {"FRAM", "FRAME"},
      {"FRAME", "cut short"},
      {"FRAMES\nabcdef", "FRAME"},
      {"garbage\n", "FRAME"},
      {"FRAME " + std::string(5000, 'I'), "cut short"},
  };
  for (const auto& [tail, reason] : tails) {
    const auto film = open(folder.write("cut.y4m", header + frame + frame + tail));
    EXPECT_TRUE(film->next());
    EXPECT_TRUE(film->next());
    EXPECT_THAT([&] { static_cast<void>(film->next()); },
                testing::ThrowsMessage<Failure>(testing::ContainsRegex("frame 3 of.*" + reason)));
  }
}

TEST(Y4mReader, namesAFileThatIsNoFilm) {
  const TemporaryFolder folder;
  const std::string path = folder.write("bad.y4m", "YUV4MPEG2 W2 H2 X" + std::string(5000, 'x') + "\n");
  EXPECT_THAT([&] { open(path); }, failsWith(path));
  EXPECT_THAT([&] { open(folder.file("")); }, failsWith("directory"));
}

TEST(Y4mWriter, writesWhatTheReaderReadAtOddSizesAndWithPaddedRows) {
  const TemporaryFolder folder;
  for (const auto& [width, height] :
       std::vector<std::pair<std::size_t, std::size_t>>{{1, 1}, {3, 5}, {2, 2}, {16384, 1}}) {
    Y4mHeader header;
    header.width = width;
    header.height = height;
    const std::string planes = counting(header.frameSize());
    const std::string film = header.text() + "FRAME\n" + planes + "FRAME\n" + planes;
    const auto source = open(folder.write("in.y4m", film));
    ByteOutput output = ByteOutput::open(folder.file("out.y4m"), std::make_shared<Cancellation>());
    Y4mWriter writer(output, header);
    EXPECT_EQ(writer.repeat(), ByteOutput::Outcome::written);
    EXPECT_EQ(writer.write(*source->next()), ByteOutput::Outcome::written);
    EXPECT_EQ(writer.repeat(), ByteOutput::Outcome::written);
    output.close();
    EXPECT_EQ(folder.read("out.y4m"), film) << width << "x" << height;
  }
}
