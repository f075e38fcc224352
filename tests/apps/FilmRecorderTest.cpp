#include "FilmRecorder.h"

#include <QelUtilVideo/Capturable.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Failure.h"
#include "HostLoop.h"
#include "Recorder.h"
#include "TemporaryFolder.h"
#include "Terminal.h"
#include "support/WarmUp.h"

using namespace QelUtilVideo;
using namespace qelvideo;

namespace {

/// The main loop and the signal handlers keep descriptors for the whole process.
const qeltest::WarmUp processWide([] { HostLoop().runUntil([] { return true; }); });

CVPixelBufferRef picture(std::size_t width, std::size_t height) {
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_32BGRA, buffer), kCVReturnSuccess);
  std::fill_n(buffer->planes()[0].baseAddress, buffer->planes()[0].bytesPerRow * height, std::byte{90});
  return buffer;
}

std::shared_ptr<FilmRecorder> film(const std::string& path) {
  const auto cancellation = std::make_shared<Cancellation>();
  return std::make_shared<FilmRecorder>(ByteOutput::open(path, cancellation), cancellation);
}

constexpr std::size_t headerSize = sizeof("YUV4MPEG2 W3 H5 F10:1 Ip A1:1 C420jpeg XCOLORRANGE=LIMITED");
constexpr std::size_t frameSize = 6 + 15 + 2 * 6;

}  // namespace

TEST(FilmRecorder, fillsGapsAndLastsToTheEnd) {
  const TemporaryFolder folder;
  HostLoop loop;
  const auto recorder = film(folder.file("film.y4m"));
  for (const double timestamp : {7.0, 7.1, 7.4}) {
    EXPECT_EQ(recorder->consume(picture(3, 5), timestamp), FrameConsumer::Verdict::more);
  }
  const FilmRecorder::Summary summary = recorder->finish(loop, 7.6);
  EXPECT_FALSE(summary.failure);
  EXPECT_EQ(summary.repeated, 3U);
  EXPECT_EQ(summary.bytes, headerSize + 6 * frameSize);
  EXPECT_EQ(folder.read("film.y4m").size(), summary.bytes);
}

TEST(FilmRecorder, withoutFramesLeavesNoFile) {
  const TemporaryFolder folder;
  HostLoop loop;
  {
    const FilmRecorder::Summary summary = film(folder.file("film.y4m"))->finish(loop, 0);
    EXPECT_FALSE(summary.failure);
  }
  EXPECT_TRUE(folder.empty());
  film(folder.file("abandoned.y4m")).reset();
  EXPECT_TRUE(folder.empty());
}

TEST(Recorder, aSourceThatChangesItsSizeEndsTheFilmWithAReason) {
  const TemporaryFolder folder;
  HostLoop loop;
  Terminal terminal;
  const auto consumer = film(folder.file("film.y4m"));
  Recorder recorder(terminal, {}, consumer);
  recorder.capturableDidOutput(nullptr, picture(3, 5), 1);
  EXPECT_FALSE(recorder.ended());
  recorder.capturableDidOutput(nullptr, picture(5, 3), 1.1);
  EXPECT_TRUE(recorder.ended());
  recorder.capturableDidOutput(nullptr, picture(3, 5), 1.2);
  const Recording recording = recorder.finish();
  EXPECT_EQ(recording.frames, 1U);
  ASSERT_TRUE(recording.failure);
  EXPECT_NE(recording.failure->find("from 3x5 to 5x3"), std::string::npos) << *recording.failure;
  EXPECT_EQ(consumer->finish(loop, 1).bytes, headerSize + frameSize);
}

TEST(Recorder, endsByItsLimits) {
  Terminal terminal;
  Recorder byFrames(terminal, {.frames = 2, .seconds = {}}, nullptr);
  Recorder bySeconds(terminal, {.frames = {}, .seconds = 0.3}, nullptr);
  for (int i = 0; i < 5; ++i) {
    byFrames.capturableDidOutput(nullptr, picture(3, 5), 1 + 0.1 * i);
    bySeconds.capturableDidOutput(nullptr, picture(3, 5), 1 + 0.1 * i - (i == 3 ? 0.001 : 0));
  }
  EXPECT_EQ(byFrames.finish().frames, 2U);
  const Recording timed = bySeconds.finish();
  EXPECT_EQ(timed.frames, 3U);
  EXPECT_DOUBLE_EQ(timed.lastTime, 1.2);
  EXPECT_FALSE(timed.failure);
}
