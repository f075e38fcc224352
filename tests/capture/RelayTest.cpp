#include "capture/RecordingDelegate.h"
#include "capture/SessionDelegate.h"
#include "capture/SessionStatistics.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <cmath>
#include <stdexcept>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;

class Source final : public SessionDelegate {
 public:
  std::string uniqueID() const override { return "source"; }
  std::string name() const override { return "Source"; }
  bool isAvailable() const override { return true; }
  bool isCamera() const override { return false; }
  bool isScreen() const override { return false; }
  bool isWindow() const override { return false; }
  std::shared_ptr<CapturableOutputDelegate> delegate() const override { return held.lock(); }
  bool start(const std::shared_ptr<CapturableOutputDelegate>&, NSError*) override { return true; }
  void stop() override {}
  const std::string& logName() const override { return tag; }

  std::weak_ptr<CapturableOutputDelegate> held;
  std::string tag = "[Source:7]";
};

class RelayTest : public testing::Test {
 protected:
  void tellAll() {
    const NSError error{"domain", 3, "it broke"};
    const Dictionary userInfo{{"reason", std::string("busy")}, {"code", std::int32_t{4}}};
    source->sessionWillStartRunning();
    source->sessionDidFailToStartRunning(error);
    source->sessionDidStartRunning();
    source->sessionDidStopRunning(&error);
    source->sessionDidStopRunning(nullptr);
    source->sessionDidBeginInterruption(&userInfo);
    source->sessionDidBeginInterruption(nullptr);
    source->sessionDidEndInterruption();
    source->sessionDidOutput(nullptr, 1.5);
  }

  ScopedMachine machine;
  LogCapture log;
  std::shared_ptr<Source> source = std::make_shared<Source>();
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
};

TEST_F(RelayTest, everyEventButAFrameIsLoggedOnceAndThenTold) {
  source->held = delegate;
  std::size_t linesBefore = 0;
  delegate->react = [&](const std::string& event, const std::shared_ptr<Capturable>& told) {
    EXPECT_EQ(told, source);
    EXPECT_EQ(log.lines().size(), linesBefore + (event == "frame" ? 0 : 1)) << event;
    linesBefore = log.lines().size();
  };
  tellAll();
  EXPECT_THAT(
      log.messages(LogLevel::info),
      ElementsAre("[Source:7][Delegate] willStartRunning",
                  "[Source:7][Delegate] didFailToStartRunning (error: it broke)",
                  "[Source:7][Delegate] didStartRunning",
                  "[Source:7][Delegate] didStopRunning (error: it broke)",
                  "[Source:7][Delegate] didStopRunning (no error)",
                  "[Source:7][Delegate] didBeginInterruption (reason:busy,code:4)",
                  "[Source:7][Delegate] didBeginInterruption ()", "[Source:7][Delegate] didEndInterruption"));
  EXPECT_THAT(delegate->events(),
              ElementsAre("willStart", "didFailToStart it broke", "didStart", "didStop it broke",
                          "didStop none", "begin 2", "begin", "end", "frame"));
  EXPECT_THAT(delegate->timestamps(), ElementsAre(1.5));
}

TEST_F(RelayTest, withoutADelegateEventsAreOnlyLogged) {
  tellAll();
  EXPECT_EQ(log.lines().size(), 8U);
  source->held = delegate;
  delegate.reset();
  tellAll();
  EXPECT_EQ(log.lines().size(), 16U);
}

TEST_F(RelayTest, aDelegateThatThrowsIsReportedByTheNameOfItsMethod) {
  source->held = delegate;
  delegate->react = [](const std::string& event, const auto&) {
    if (event == "didStart") throw std::runtime_error("host bug");
    throw 5;
  };
  tellAll();
  EXPECT_EQ(log.lines().size(), 8U);
  const auto troubles = machine->systemLog().troubles();
  ASSERT_EQ(troubles.size(), 9U);
  EXPECT_THAT(troubles[2], testing::AllOf(testing::HasSubstr("capturableDidStartRunning"),
                                          testing::HasSubstr("host bug")));
  EXPECT_THAT(troubles[8], testing::HasSubstr("capturableDidOutput"));
}

TEST(SessionStatisticsTest, rateIsGivenOnlyForADurationAboveZero) {
  EXPECT_EQ(sessionStatistics(25, 2.5), "duration=2.5sec, captured=25(10.0fps)");
  EXPECT_EQ(sessionStatistics(5, 0.5), "duration=0.5sec, captured=5(10.0fps)");
  EXPECT_EQ(sessionStatistics(1, 0.04), "duration=0.0sec, captured=1(25.0fps)");
  EXPECT_EQ(sessionStatistics(0, 0), "duration=0sec, captured=0");
  EXPECT_EQ(sessionStatistics(3, -1), "duration=0sec, captured=3");
  EXPECT_EQ(sessionStatistics(3, std::nan("")), "duration=0sec, captured=3");
}

}  // namespace
}  // namespace QelUtilVideo
