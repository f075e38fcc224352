#include "FilmRecorder.h"

#include <QelUtilVideo/Capturable.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <memory>
#include <vector>

#include "ByteOutput.h"
#include "Failure.h"
#include "HostLoop.h"
#include "Recorder.h"
#include "Terminal.h"
#include "support/TemporaryFolder.h"
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
  return std::make_shared<FilmRecorder>(ByteOutput::open(path, cancellation), cancellation, 10);
}

std::vector<std::byte> bytes(std::size_t count, char value) {
  return std::vector<std::byte>(count, static_cast<std::byte>(value));
}

std::shared_ptr<Cancellation> uncancelled() { return std::make_shared<Cancellation>(); }

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

TEST(ByteOutput, keepsAnOldFileUntilTheFirstPieceAndRemovesANewEmptyOne) {
  const TemporaryFolder folder;
  const std::string old = folder.write("old", "precious and long");
  static_cast<void>(ByteOutput::open(old, uncancelled()));
  EXPECT_EQ(folder.read("old"), "precious and long");
  {
    ByteOutput output = ByteOutput::open(old, uncancelled());
    EXPECT_EQ(output.write(bytes(3, 'x')), ByteOutput::Outcome::written);
  }
  EXPECT_EQ(folder.read("old"), "xxx");
  std::remove(old.c_str());
  static_cast<void>(ByteOutput::open(folder.file("new"), uncancelled()));
  EXPECT_TRUE(folder.empty());
}

TEST(ByteOutput, aFullDiskLeavesOnlyWholePieces) {
  const TemporaryFolder folder;
  ::signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited{};
  ::getrlimit(RLIMIT_FSIZE, &unlimited);
  ByteOutput output = ByteOutput::open(folder.file("film"), uncancelled());
  const rlimit limit{.rlim_cur = 1500, .rlim_max = unlimited.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(output.write(bytes(1000, 'a')), ByteOutput::Outcome::written);
  EXPECT_THROW(static_cast<void>(output.write(bytes(1000, 'b'))), Failure);
  ::setrlimit(RLIMIT_FSIZE, &unlimited);
  EXPECT_EQ(folder.read("film"), std::string(1000, 'a'));
}
