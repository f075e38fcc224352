#include <gtest/gtest.h>

#include <vector>

#include "Failure.h"
#include "FilmTimeline.h"
#include "Recorder.h"
#include "SourceLookup.h"
#include "Statistics.h"
#include "ViewOptions.h"

using namespace QelUtilVideo;
using namespace qelvideo;

TEST(SourceLookup, theFirstRuleThatFitsDecides) {
  const std::vector<SourceName> sources{{"Lib.Display.66", "HDMI-1"},
                                        {"Lib.Display.6", "HDMI-2"},
                                        {"Lib.Display.166", "66"},
                                        {"Lib.Window.7", "Clock"}};
  using Matches = std::vector<std::size_t>;
  EXPECT_EQ(matchingSources("Lib.Display.6", sources), Matches{1});
  EXPECT_EQ(matchingSources("6", sources), Matches{1});
  EXPECT_EQ(matchingSources("66", sources), (Matches{0, 2}));
  EXPECT_EQ(matchingSources("166", sources), Matches{2});
  EXPECT_EQ(matchingSources("HDMI-2", sources), Matches{1});
  EXPECT_EQ(matchingSources("hdmi", sources), (Matches{0, 1}));
  EXPECT_EQ(matchingSources("clo", sources), Matches{3});
  EXPECT_EQ(matchingSources("Lib.W", sources), Matches{3});
  EXPECT_EQ(matchingSources("y.166", sources), Matches{2});
  EXPECT_EQ(matchingSources("Lib.", sources).size(), 4U);
  EXPECT_TRUE(matchingSources("", sources).empty());
  EXPECT_TRUE(matchingSources("DP", sources).empty());
}

TEST(FilmTimeline, aSteadyOrMerelyUnsteadySourceIsWrittenFrameByFrame) {
  FilmTimeline timeline(10);
  const std::vector<double> offsets{0, 0.04, -0.04, 0.09, -0.05, 0.08, 0.0};
  for (std::size_t i = 0; i < offsets.size(); ++i) {
    const auto placement = timeline.place(1000 + 0.1 * static_cast<double>(i) + offsets[i]);
    EXPECT_EQ(placement.repeats, 0U) << i;
    EXPECT_TRUE(placement.written) << i;
  }
  EXPECT_EQ(timeline.length(), offsets.size());
}

TEST(FilmTimeline, fillsGapsLeavesOutHasteAndLastsToTheEnd) {
  FilmTimeline timeline(10);
  EXPECT_EQ(timeline.extendTo(5), 0U);
  EXPECT_TRUE(timeline.place(5).written);
  EXPECT_EQ(timeline.place(5.5).repeats, 4U);
  EXPECT_EQ(timeline.length(), 6U);
  EXPECT_TRUE(timeline.place(5.52).written);
  EXPECT_FALSE(timeline.place(5.54).written);
  EXPECT_EQ(timeline.length(), 7U);
  EXPECT_EQ(timeline.extendTo(6), 3U);
  EXPECT_EQ(timeline.extendTo(6), 0U);
  EXPECT_EQ(timeline.extendTo(5.2), 0U);
}

TEST(Statistics, countsTheTimeThatTheFramesLast) {
  Recording recording;
  EXPECT_EQ(Statistics(recording).text(), "0 frames");
  recording.frames = 1;
  recording.width = 3;
  recording.height = 5;
  EXPECT_EQ(Statistics(recording).text(), "1 frame, 3x5");
  recording = {
      .frames = 30, .firstTime = 100, .lastTime = 102.9, .width = 1920, .height = 1080, .failure = {}};
  Statistics statistics(recording);
  EXPECT_EQ(statistics.text(), "30 frames in 3.0 s (10.0 fps), 1920x1080");
  statistics.bytes = 93312000;
  statistics.repeated = 2;
  statistics.dropped = 1;
  EXPECT_EQ(statistics.text(), "30 frames in 3.0 s (10.0 fps), 1920x1080, 93.3 MB, 2 repeated, 1 dropped");
}

TEST(ViewOptions, sizesColoursAndOrientationsAreReadOrRefused) {
  EXPECT_EQ(parseSize("640x360"), (CGSize{640, 360}));
  EXPECT_EQ(parseSize("1x16384"), (CGSize{1, 16384}));
  for (const char* bad : {"", "640", "x", "640x", "0x3", "640x-3", "16385x1", "640x360x2", "6e2x3", " 1x1"}) {
    EXPECT_THROW(static_cast<void>(parseSize(bad)), UsageFailure) << bad;
  }
  EXPECT_EQ(parseColor("#ff0033")->usingDeviceRGBColorSpace(), (NSColor::RGBA{1, 0, 0.2, 1}));
  EXPECT_EQ(parseColor("#FF003300")->usingDeviceRGBColorSpace(), (NSColor::RGBA{1, 0, 0.2, 0}));
  for (const char* bad : {"", "red", "#fff", "#12345g", "123456", "#-12345", "#1234567"}) {
    EXPECT_THROW(static_cast<void>(parseColor(bad)), UsageFailure) << bad;
  }
  EXPECT_EQ(parseOrientation("6"), CGImagePropertyOrientation::right);
  EXPECT_EQ(parseOrientation("right"), CGImagePropertyOrientation::right);
  EXPECT_EQ(parseOrientation("left-mirrored"), CGImagePropertyOrientation::leftMirrored);
  for (const char* bad : {"", "0", "9", "upside-down", "+1"}) {
    EXPECT_THROW(static_cast<void>(parseOrientation(bad)), UsageFailure) << bad;
  }
}
