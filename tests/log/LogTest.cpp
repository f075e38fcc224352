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
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

class LogTest : public testing::Test {
 protected:
  ~LogTest() override { QelKit::QelManager::setLoggingEnabled(false); }
  ScopedMachine machine;
};

Logger loggerOf(const Logger::Sink& sink) { return {sink, sink, sink}; }

std::string inSystemLog(std::source_location where, const std::string& message) {
  return "[:" + std::to_string(where.line()) + "] " + message;
}

TEST_F(LogTest, firstLineFollowsTheRevisionAtEveryDestination) {
  machine->bundle().setInfoDictionary(Dictionary{{"QelUtilRevision", std::string("1a2b3c")}});
  const LogCapture sinks(true);
  log(LogLevel::error, "first");
  log(LogLevel::warning, "second");

  EXPECT_THAT(sinks.messages(), ElementsAre("module revision 1a2b3c", "first", "second"));
  EXPECT_EQ(sinks.lines()[0].level, LogLevel::info);
  EXPECT_THAT(sinks.lines()[0].file, HasSubstr("src/log/"));
  EXPECT_THAT(machine->systemLog().texts(), ElementsAre(MatchesRegex("\\[:[0-9]+\\] module revision 1a2b3c"),
                                                        EndsWith(" first"), EndsWith(" second")));
}

TEST_F(LogTest, aLineKeepsItsLevelAndPlaceAtBothDestinations) {
  const LogCapture sinks;
  const auto where = std::source_location::current();
  log(LogLevel::error, "e", where);
  log(LogLevel::warning, "w", where);
  log(LogLevel::info, "i", where);

  const auto lines = sinks.lines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].level, LogLevel::error);
  EXPECT_EQ(lines[1].level, LogLevel::warning);
  EXPECT_EQ(lines[2].level, LogLevel::info);
  for (const auto& line : lines) {
    EXPECT_EQ(line.line, where.line());
    EXPECT_EQ(line.file, where.file_name());
  }

  const auto records = machine->systemLog().records();
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[1].type, os_log_type_t::OS_LOG_TYPE_ERROR);
  EXPECT_EQ(records[2].type, os_log_type_t::OS_LOG_TYPE_DEFAULT);
  EXPECT_EQ(records[3].type, os_log_type_t::OS_LOG_TYPE_INFO);
  EXPECT_EQ(records[3].text, inSystemLog(where, "i"));
  EXPECT_EQ(records[3].category, "video");
  EXPECT_EQ(machine->systemLog().logsMade(), 1);
}

TEST_F(LogTest, withoutALoggerLinesReachTheSystemLogAlone) {
  testing::internal::CaptureStderr();
  log(LogLevel::error, "quiet");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(machine->systemLog().texts(), ElementsAre(StartsWith("[:"), EndsWith("] quiet")));
}

TEST_F(LogTest, theCompanionsLogIsTheDefaultWhenItIsEnabledAtFirstUse) {
  QelKit::QelManager::setLoggingEnabled(true);
  testing::internal::CaptureStderr();
  const auto where = std::source_location::current();
  log(LogLevel::info, "shown", where);
  log(LogLevel::error, "bad", where);
  const std::string line = std::to_string(where.line());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              MatchesRegex("info \\[[0-9]+\\] \\[QelUtilVideo\\] module revision unknown\n"
                           "info \\[" +
                           line +
                           "\\] \\[QelUtilVideo\\] shown\n"
                           "error \\[" +
                           line + "\\] \\[QelUtilVideo\\] bad\n"));
}

TEST_F(LogTest, theDefaultLoggerDoesNotComeBack) {
  setupLogger(std::nullopt);
  QelKit::QelManager::setLoggingEnabled(true);
  testing::internal::CaptureStderr();
  log(LogLevel::info, "quiet");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(LogTest, removingTheLoggerReleasesItAndKeepsTheSystemLog) {
  auto token = std::make_shared<int>(0);
  setupLogger(loggerOf([token](const std::string&, const char*, std::uint64_t) { *token += 1; }));
  log(LogLevel::info, "heard");
  setupLogger(std::nullopt);
  log(LogLevel::info, "not heard");
  EXPECT_EQ(*token, 2);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_EQ(machine->systemLog().texts().size(), 3U);
}

TEST_F(LogTest, aSinkMayThrowBeEmptyOrUseTheLog) {
  std::vector<std::string> heard;
  const auto hear = [&](const std::string& message, const char*, std::uint64_t) {
    heard.push_back(message);
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
  EXPECT_THAT(heard, ElementsAre("[QelUtilVideo] module revision unknown", "[QelUtilVideo] outer",
                                 "[QelUtilVideo] inner"));
  EXPECT_THAT(machine->systemLog().troubles(), ElementsAre("A log sink threw: full"));
}

TEST_F(LogTest, aSinkMayLogDuringTheRevisionLine) {
  std::vector<std::string> heard;
  setupLogger(loggerOf([&](const std::string& message, const char*, std::uint64_t) {
    heard.push_back(message);
    if (heard.size() == 1) log(LogLevel::info, "from the sink");
  }));
  log(LogLevel::info, "own");
  EXPECT_EQ(heard.size(), 3U);
}

TEST(LogRaceTest, noLinePrecedesTheRevisionWhenFirstLinesRace) {
  for (int round = 0; round < 50; ++round) {
    const ScopedMachine machine;
    const LogCapture sinks(true);
    std::barrier start(4);
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
          start.arrive_and_wait();
          log(LogLevel::info, "mine");
        });
      }
    }
    const auto heard = sinks.messages();
    const auto written = machine->systemLog().texts();
    ASSERT_EQ(heard.size(), 5U);
    ASSERT_EQ(written.size(), 5U);
    EXPECT_EQ(heard[0], "module revision unknown");
    EXPECT_THAT(written[0], EndsWith("module revision unknown"));
  }
}

TEST(LogRaceTest, loggersAreReplacedWhole) {
  const ScopedMachine machine;
  std::atomic<bool> mixed = false;
  const auto install = [&](int number) {
    auto alive = std::make_shared<std::atomic<int>>(number);
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
}

TEST_F(LogTest, versionIsTheTextInTheInformationDictionaryReadAnew) {
  EXPECT_EQ(version(), "unknown");
  machine->bundle().setInfoDictionary(Dictionary{{"Other", std::string("x")}});
  EXPECT_EQ(version(), "unknown");
  machine->bundle().setInfoDictionary(Dictionary{{"QelUtilRevision", std::int64_t{7}}});
  EXPECT_EQ(version(), "unknown");
  machine->bundle().setInfoDictionary(Dictionary{{"QelUtilRevision", std::string("r7")}});
  EXPECT_EQ(version(), "r7");
}

TEST_F(LogTest, logIDsCountFromOneAndAreNeverHandedOutTwice) {
  EXPECT_EQ(nextLogID(), 1);
  EXPECT_EQ(nextLogID(), 2);
  EXPECT_THAT(machine->dispatch().queueLabels(), ElementsAre("QelUtilVideo.CapturableLogID"));

  Synchronised<std::set<std::int64_t>> seen;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int n = 0; n < 100; ++n) {
          const std::int64_t id = nextLogID();
          seen.with([&](auto& all) { all.insert(id); });
        }
      });
    }
  }
  EXPECT_EQ(seen.copy().size(), 400U);
  EXPECT_EQ(nextLogID(), 403);
}

TEST_F(LogTest, aQueueThatWaitsForItselfIsReportedAndGoesOn) {
  EXPECT_EQ(nextLogID(), 1);
  const auto queue = machine->dispatch().makeQueue("busy");
  bool ran = false;
  queue->sync([&] { queue->sync([&] { ran = true; }); });
  EXPECT_TRUE(ran);
  EXPECT_THAT(machine->systemLog().troubles(), ElementsAre("The queue busy was asked to wait for itself"));
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
