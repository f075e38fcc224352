#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "Failure.h"
#include "FilmTimeline.h"
#include "MachineReport.h"
#include "Recorder.h"
#include "SourceEvent.h"
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
  const std::vector<std::pair<std::string, std::vector<std::size_t>>> cases{
      {"Lib.Display.6", {1}}, {"6", {1}},      {"66", {0, 2}},
      {"166", {2}},           {"HDMI-2", {1}}, {"hdmi", {0, 1}},
      {"clo", {3}},           {"Lib.W", {3}},  {"y.166", {2}},
      {"Lib.", {0, 1, 2, 3}}, {"", {}},        {"DP", {}}};
  for (const auto& [given, matches] : cases) EXPECT_EQ(matchingSources(given, sources), matches) << given;
}

TEST(FilmTimeline, fillsGapsLeavesOutHasteAndLastsToTheEnd) {
  FilmTimeline timeline(10);
  EXPECT_EQ(timeline.extendTo(5), 0U);
  // A merely unsteady source is written frame by frame.
  for (const double unsteady : {5.0, 5.14, 5.16, 5.39, 5.35}) {
    const auto placement = timeline.place(unsteady);
    EXPECT_TRUE(placement.written && placement.repeats == 0) << unsteady;
  }
  EXPECT_EQ(timeline.place(5.9).repeats, 4U);
  EXPECT_EQ(timeline.length(), 10U);
  EXPECT_TRUE(timeline.place(5.92).written);
  EXPECT_FALSE(timeline.place(5.94).written);
  EXPECT_EQ(timeline.length(), 11U);
  EXPECT_EQ(timeline.extendTo(6.4), 3U);
  EXPECT_EQ(timeline.extendTo(6.4), 0U);
  EXPECT_EQ(timeline.extendTo(5.2), 0U);
}

TEST(Statistics, countsTheTimeThatTheFramesLast) {
  EXPECT_EQ(Statistics(Recording{}).text(), "0 frames");
  Recording recording{
      .frames = 1, .firstTime = 100, .lastTime = 102.9, .width = 1920, .height = 1080, .failure = {}};
  EXPECT_EQ(Statistics(recording).text(), "1 frame, 1920x1080");
  recording.frames = 30;
  Statistics statistics(recording);
  statistics.bytes = 93312000;
  statistics.repeated = 2;
  statistics.dropped = 1;
  EXPECT_EQ(statistics.text(), "30 frames in 3.0 s (10.0 fps), 1920x1080, 93.3 MB, 2 repeated, 1 dropped");
}

template <class Parse>
void expectRefused(Parse parse, std::initializer_list<const char*> texts) {
  for (const char* bad : texts) EXPECT_THROW(static_cast<void>(parse(bad)), UsageFailure) << bad;
}

TEST(ViewOptions, sizesColoursAndOrientationsAreReadOrRefused) {
  EXPECT_EQ(parseSize("640x360"), (CGSize{640, 360}));
  EXPECT_EQ(parseSize("1x16384"), (CGSize{1, 16384}));
  expectRefused(parseSize,
                {"", "640", "x", "640x", "0x3", "640x-3", "16385x1", "640x360x2", "6e2x3", " 1x1"});
  EXPECT_EQ(parseColor("#ff0033")->usingDeviceRGBColorSpace(), (NSColor::RGBA{1, 0, 0.2, 1}));
  EXPECT_EQ(parseColor("#FF003300")->usingDeviceRGBColorSpace(), (NSColor::RGBA{1, 0, 0.2, 0}));
  expectRefused(parseColor, {"", "red", "#fff", "#12345g", "123456", "#-12345", "#1234567"});
  EXPECT_EQ(parseOrientation("6"), CGImagePropertyOrientation::right);
  EXPECT_EQ(parseOrientation("right"), CGImagePropertyOrientation::right);
  EXPECT_EQ(parseOrientation("left-mirrored"), CGImagePropertyOrientation::leftMirrored);
  expectRefused(parseOrientation, {"", "0", "9", "upside-down", "+1"});
}

TEST(SourceEvent, isOneLineWhateverTheName) {
  SourceEvent event{.time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1893456000007)),
                    .what = SourceEvent::What::connected,
                    .kind = "window",
                    .name = "a\n\x1b[2J\xff \xc3\xa9",
                    .uniqueID = "Lib.7"};
  EXPECT_EQ(event.json(), R"({"time":"2030-01-01T00:00:00.007Z","event":"connected","kind":"window",)"
                          R"("name":"a\n\u001b[2J)"
                          "\xef\xbf\xbd \xc3\xa9\",\"uniqueID\":\"Lib.7\"}");
  EXPECT_EQ(event.text().substr(8), "  connected     window          a??[2J\xff \xc3\xa9  Lib.7");
}

TEST(MachineReport, onlyWhatIsMissingForDisplaysAndViewsIsDecisive) {
  using Area = Finding::Area;
  using State = Finding::State;
  const auto report = [](Area area, State state) {
    return MachineReport(
        {{Area::displays, "X", State::limited, "a\x1b", "Do."}, {area, "Y", state, "b", ""}});
  };
  for (const Area area : {Area::displays, Area::drawing, Area::cameras, Area::system}) {
    for (const State state : {State::ok, State::limited, State::missing, State::unused}) {
      const bool isMissing = state == State::missing;
      EXPECT_EQ(report(area, state).capturesDisplays(), !(isMissing && area == Area::displays));
      EXPECT_EQ(report(area, state).drawsViews(), !(isMissing && area == Area::drawing));
    }
  }
  EXPECT_EQ(report(Area::system, State::unused).text(),
            "Capturing displays and windows\n  limited  X                   a?\n           -> Do.\n\n"
            "System\n  unused   Y                   b");
}
