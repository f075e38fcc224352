#include "log/Log.h"

#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelKit/QelManager.h>
#include <QelUtilVideo/Version.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <barrier>
#include <set>
#include <stdexcept>
#include <thread>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;
using testing::Pair;

class LogTest : public testing::Test {
 protected:
  ~LogTest() override { QelKit::QelManager::setLoggingEnabled(false); }
  ScopedMachine machine;
};

Logger loggerOf(const Logger::Sink& sink) { return {sink, sink, sink}; }

std::string standardErrorOfTwoLines() {
  testing::internal::CaptureStderr();
  log(LogLevel::info, "shown");
  log(LogLevel::warning, "odd");
  return testing::internal::GetCapturedStderr();
}

void onFourThreads(const std::function<void()>& action) {
  std::barrier start(4);
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      start.arrive_and_wait();
      action();
    });
  }
}

TEST_F(LogTest, linesFollowTheRevisionWithTheirLevelAndPlaceAtBothDestinations) {
  machine->bundle().setInfoDictionary(Dictionary{{"QelUtilRevision", std::string("1a2b3c")}});
  const LogCapture sinks(true);
  const auto where = std::source_location::current();
  log(LogLevel::error, "e", where);
  log(LogLevel::warning, "w", where);
  log(LogLevel::info, "i", where);

  std::vector<std::pair<LogLevel, std::string>> heard;
  for (const auto& line : sinks.lines()) heard.emplace_back(line.level, line.message);
  using enum LogLevel;
  EXPECT_THAT(heard, ElementsAre(Pair(info, "module revision 1a2b3c"), Pair(error, "e"), Pair(warning, "w"),
                                 Pair(info, "i")));
  EXPECT_EQ(sinks.lines()[1].line, where.line());
  EXPECT_EQ(sinks.lines()[1].file, where.file_name());
  std::vector<std::pair<os_log_type_t, std::string>> written;
  for (const auto& record : machine->systemLog().records()) written.emplace_back(record.type, record.text);
  const std::string place = "[:" + std::to_string(where.line()) + "] ";
  using enum os_log_type_t;
  EXPECT_THAT(written,
              ElementsAre(Pair(OS_LOG_TYPE_INFO, EndsWith("] module revision 1a2b3c")),
                          Pair(OS_LOG_TYPE_ERROR, place + "e"), Pair(OS_LOG_TYPE_DEFAULT, place + "w"),
                          Pair(OS_LOG_TYPE_INFO, place + "i")));
}

TEST_F(LogTest, theCompanionsLogIsTheDefaultOnlyWhenItIsEnabledAtFirstUse) {
  QelKit::QelManager::setLoggingEnabled(true);
  EXPECT_THAT(standardErrorOfTwoLines(),
              MatchesRegex("info \\[[0-9]+\\] \\[QelUtilVideo\\] module revision unknown\n"
                           "info \\[[0-9]+\\] \\[QelUtilVideo\\] shown\n"
                           "warning \\[[0-9]+\\] \\[QelUtilVideo\\] odd\n"));
}

TEST_F(LogTest, theDefaultLoggerDoesNotComeBackAndWithoutOneLinesReachTheSystemLogAlone) {
  setupLogger(std::nullopt);
  QelKit::QelManager::setLoggingEnabled(true);
  EXPECT_EQ(standardErrorOfTwoLines(), "");
  EXPECT_THAT(machine->systemLog().texts(), ElementsAre(EndsWith("n"), EndsWith("shown"), EndsWith("odd")));
}

TEST_F(LogTest, aSinkMayThrowBeEmptyOrUseTheLogEvenDuringTheRevisionLine) {
  std::vector<std::string> heard;
  const auto hear = [&](const std::string& message, const char*, std::uint64_t) {
    heard.push_back(message);
    if (message.ends_with("unknown")) log(LogLevel::info, "early");
    if (message.ends_with("outer")) {
      log(LogLevel::info, "inner");
      setupLogger(std::nullopt);
    }
  };
  setupLogger(Logger(hear, nullptr, [](const std::string&, const char*, std::uint64_t) {
    throw std::runtime_error("full");
  }));
  log(LogLevel::error, "thrown");
  log(LogLevel::warning, "swallowed");
  log(LogLevel::info, "outer");
  EXPECT_THAT(heard, ElementsAre("[QelUtilVideo] module revision unknown", "[QelUtilVideo] early",
                                 "[QelUtilVideo] outer", "[QelUtilVideo] inner"));
  EXPECT_THAT(machine->systemLog().troubles(), ElementsAre("A log sink threw: full"));
}

TEST(LogRaceTest, noLinePrecedesTheRevisionWhenFirstLinesRace) {
  for (int round = 0; round < 50; ++round) {
    const ScopedMachine machine;
    const LogCapture sinks(true);
    onFourThreads([] { log(LogLevel::info, "mine"); });
    const auto heard = sinks.messages();
    const auto written = machine->systemLog().texts();
    ASSERT_EQ(heard.size(), 5U);
    ASSERT_EQ(written.size(), 5U);
    EXPECT_EQ(heard[0], "module revision unknown");
    EXPECT_THAT(written[0], EndsWith("module revision unknown"));
  }
}

TEST(LogRaceTest, loggersAreReplacedWholeAndReleasedWhenRemoved) {
  const ScopedMachine machine;
  std::atomic<bool> mixed = false;
  std::weak_ptr<void> newest;
  const auto install = [&](int number) {
    auto alive = std::make_shared<std::atomic<int>>(number);
    newest = alive;
    setupLogger(loggerOf([&mixed, alive, number](const std::string&, const char*, std::uint64_t) {
      if (*alive != number) mixed = true;
    }));
  };
  install(0);
  std::jthread replacing([&](const std::stop_token& stop) {
    for (int number = 1; !stop.stop_requested(); ++number) install(number);
  });
  for (int i = 0; i < 2000; ++i) log(LogLevel::info, "line");
  replacing.request_stop();
  replacing.join();
  EXPECT_FALSE(mixed);
  setupLogger(std::nullopt);
  EXPECT_TRUE(newest.expired());
}

TEST_F(LogTest, versionIsTheTextInTheInformationDictionaryReadAnew) {
  EXPECT_EQ(version(), "unknown");
  machine->bundle().setInfoDictionary(Dictionary{{"QelUtilRevision", std::string("r7")}});
  EXPECT_EQ(version(), "r7");
}

TEST_F(LogTest, logIDsCountFromOneAndAreNeverHandedOutTwice) {
  EXPECT_EQ(nextLogID(), 1);
  EXPECT_THAT(machine->dispatch().queueLabels(), ElementsAre("QelUtilVideo.CapturableLogID"));
  Synchronised<std::set<std::int64_t>> seen;
  onFourThreads([&] {
    for (int n = 0; n < 100; ++n) {
      seen.with([id = nextLogID()](auto& all) { all.insert(id); });
    }
  });
  EXPECT_EQ(seen.copy().size(), 400U);
  EXPECT_EQ(nextLogID(), 402);
}

TEST(FatalDeathTest, reportsTheMessageAtErrorLevelAndEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  const ScopedMachine machine;
  EXPECT_EXIT(
      {
        setupLogger(Logger({}, {}, [](const std::string& message, const char* file, std::uint64_t line) {
          std::fprintf(stderr, "sink: %s %s %d\n", message.c_str(), file, static_cast<int>(line));
        }));
        fatal("no such thing");
      },
      testing::KilledBySignal(SIGABRT),
      "sink: \\[QelUtilVideo\\] no such thing .*LogTest.cpp [0-9]+\n"
      "Fatal error: no such thing: file .*Log.cpp, line [0-9]+");
}

}  // namespace
}  // namespace QelUtilVideo
