#include "capture/windowlist/Session.h"

#include "capture/RecordingDelegate.h"
#include "capture/SessionStatistics.h"
#include "capture/windowlist/Error.h"
#include "capture/windowlist/Target.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <stdexcept>
#include <thread>

namespace QelUtilVideo::windowlist {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kOutputQueue = "QelUtilVideo.CapturableWindow.OutputQueue";

/// A target whose answers the test gives.
class ScriptedTarget final : public Target {
 public:
  ScriptedTarget(Platform& platform, bool& destroyed) : Target(platform, "[T]"), destroyed_(destroyed) {}
  ~ScriptedTarget() override {
    tearDownSession();
    destroyed_ = true;
  }

  using Answer = std::function<Result<CVPixelBufferRef>()>;
  Answer answer = frame;

  static Result<CVPixelBufferRef> frame() {
    CVPixelBufferRef buffer;
    static_cast<void>(CVPixelBufferCreate(2, 2, kCVPixelFormatType_32BGRA, buffer));
    return buffer;
  }
  static Result<CVPixelBufferRef> nothing() { return CVPixelBufferRef(); }
  static Result<CVPixelBufferRef> failure() { return makeError(Error::failedToCapture); }

  std::string uniqueID() const override { return "scripted"; }
  std::string name() const override { return "Scripted"; }
  bool isAvailable() const override { return true; }
  bool isCamera() const override { return false; }
  bool isScreen() const override { return true; }
  bool isWindow() const override { return false; }
  Result<CVPixelBufferRef> capture() override { return answer(); }

 private:
  bool& destroyed_;
};

class SessionTest : public testing::Test {
 protected:
  void start() { EXPECT_TRUE(target->start(delegate, nullptr)); }
  /// Time passes while captures are answered like this.
  void pass(double seconds, ScriptedTarget::Answer answer = ScriptedTarget::frame) {
    target->answer = std::move(answer);
    machine->advance(seconds);
  }
  /// Makes the delegate do something, once, when it is told `event`.
  void on(const std::string& event, std::function<void()> action) {
    delegate->react = [this, event, action = std::move(action)](const std::string& told, const auto&) {
      if (told == event && !std::exchange(reacted, true)) action();
    };
  }
  [[nodiscard]] std::vector<std::string> events() const { return delegate->events(); }
  [[nodiscard]] std::vector<std::string> eventsWithoutFrames() const {
    auto all = delegate->events();
    std::erase(all, "frame");
    return all;
  }
  /// Whether what was logged as an event was told as well: nothing happened without a delegate.
  [[nodiscard]] bool allWasTold() const {
    const auto messages = log.messages();
    return std::ranges::count_if(messages, [](const auto& message) {
             return message.starts_with("[T][Delegate]");
           }) == std::ssize(eventsWithoutFrames());
  }

  ScopedMachine machine;
  LogCapture log;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  bool destroyed = false;
  bool reacted = false;
  std::shared_ptr<ScriptedTarget> target = std::make_shared<ScriptedTarget>(*machine, destroyed);
};

TEST_F(SessionTest, framesArriveEveryTenthOfASecondWithTheTimeBeforeTheirCapture) {
  const double begin = machine->clock().CACurrentMediaTime();
  start();
  EXPECT_THAT(events(), ElementsAre("willStart"));
  pass(0.2, [this] {
    machine->clock().jump(0.03);
    return ScriptedTarget::frame();
  });
  target->stop();
  machine->advance(1);
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "frame", "frame", "frame", "didStop none"));
  EXPECT_THAT(delegate->timestamps(), ElementsAre(begin, begin + 0.1, begin + 0.2));
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[T] start", "[T] session init", "[T] session starting",
                          "[T][Delegate] willStartRunning", "[T][Delegate] didStartRunning", "[T] stop",
                          "[T] session stopping", "[T][Delegate] didStopRunning (no error)",
                          "[T] sample info: duration=0.2sec, captured=3(13.0fps)", "[T] session deinit"));
}

TEST_F(SessionTest, stopBeforeFirstTickSendsNothingMore) {
  start();
  target->stop();
  target->stop();
  machine->advance(1);
  EXPECT_THAT(events(), ElementsAre("willStart"));
  EXPECT_THAT(log.messages(), Contains("[T] sample info: duration=0sec, captured=0").Times(1));
  EXPECT_EQ(target->session(), nullptr);
  EXPECT_EQ(target->delegate(), nullptr);
}

TEST_F(SessionTest, secondStartOnlyReplacesTheDelegate) {
  on("willStart", [this] { start(); });
  start();
  const auto second = std::make_shared<RecordingDelegate>();
  target->start(second, nullptr);
  EXPECT_EQ(machine->clock().timerCount(), 1U);
  machine->advance(0);
  EXPECT_THAT(events(), ElementsAre("willStart"));
  EXPECT_THAT(second->events(), ElementsAre("didStart", "frame"));
  EXPECT_THAT(log.messages(), Contains("[T] session starting").Times(1));
}

TEST_F(SessionTest, aFailureIsNoStartOrAStopAndTheNextStartIsAFreshOne) {
  start();
  pass(1, ScriptedTarget::failure);
  target->stop();
  start();
  pass(0.1);
  pass(1, ScriptedTarget::failure);
  start();
  pass(0);
  target->stop();
  EXPECT_THAT(eventsWithoutFrames(),
              ElementsAre("willStart", "didFailToStart failedToCapture", "willStart", "didStart",
                          "didStop failedToCapture", "willStart", "didStart", "didStop none"));
  EXPECT_THAT(log.messages(LogLevel::warning), IsEmpty());
}

TEST_F(SessionTest, aSourceWithNothingToGiveIsInterruptedOnceAndThatTimeDoesNotCount) {
  start();
  pass(1, ScriptedTarget::nothing);
  target->stop();
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "begin", "didStop none"));
  EXPECT_THAT(log.messages(), Contains("[T] sample info: duration=0sec, captured=0"));
  start();
  pass(1.95);
  pass(1, ScriptedTarget::nothing);
  pass(3.05);
  target.reset();
  EXPECT_THAT(log.messages(), Contains("[T] sample info: duration=5.0sec, captured=51(10.2fps)"));
}

TEST_F(SessionTest, framesStillQueuedAtTheStopAreDropped) {
  machine->dispatch().setSerialQueues(SerialQueues::byHand);
  start();
  pass(0.2);
  EXPECT_EQ(machine->dispatch().pendingOn(kOutputQueue), 3U);
  target->stop();
  EXPECT_THAT(log.messages(), Not(Contains("[T] session deinit")));
  machine->runQueues();
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "didStop none"));
  EXPECT_THAT(log.messages(), Contains("[T] session deinit"));

  start();
  pass(0);
  pass(0.1, ScriptedTarget::failure);
  start();
  pass(0);
  target.reset();
  EXPECT_EQ(machine->dispatch().pendingOn(kOutputQueue), 2U);
  machine->runQueues();
  EXPECT_THAT(events(), Not(Contains("frame")));
}

TEST_F(SessionTest, anUnservedMainQueueGetsWillStartAndNothingGrows) {
  machine->dispatch().setMainQueueServed(false);
  start();
  machine->advance(100);
  EXPECT_LE(machine->dispatch().pendingOnMain(), 1U);
  target->stop();
  machine->runMain();
  EXPECT_THAT(events(), ElementsAre("willStart"));
}

TEST_F(SessionTest, aSessionWhoseTargetIsGoneKeepsTickingAndSaysSo) {
  const auto session = Session::make(*machine, target, "[S]");
  session->start();
  target.reset();
  machine->advance(0.1);
  session->stop(nullptr);
  machine->advance(1);
  const std::string line = "[S] session has no target to capture";
  EXPECT_THAT(log.messages(LogLevel::error), ElementsAre(line, line));
  EXPECT_THAT(log.messages(LogLevel::warning), IsEmpty());
}

// ── What hosts do from inside the callbacks ─────────────────────────────────────────────────────────

class CallbackTest : public SessionTest,
                     public testing::WithParamInterface<std::tuple<std::string, std::string>> {};

TEST_P(CallbackTest, hostsMayStopDropOrRestartFromInsideEveryEvent) {
  const auto& [event, act] = GetParam();
  const bool drops = act == "DropsLastReference";
  const bool restarts = act == "StopsAndStarts";
  on(event, [&] {
    if (drops) return target.reset();
    target->stop();
    target->answer = ScriptedTarget::frame;
    if (restarts) start();
  });
  // Goes through every event there is, ending with a failure.
  start();
  machine->advance(0.1);
  for (const auto answer : {ScriptedTarget::nothing, ScriptedTarget::frame, ScriptedTarget::failure}) {
    if (target && !(restarts && reacted)) target->answer = answer;
    machine->advance(0.2);
  }
  ASSERT_TRUE(reacted);
  EXPECT_EQ(destroyed, drops);
  EXPECT_THAT(log.messages(), Contains("[T] session deinit").Times(1));
  EXPECT_EQ(machine->clock().timerCount(), restarts ? 1U : 0U);
  if (restarts) {
    EXPECT_EQ(target->delegate(), delegate);
    EXPECT_EQ(events().back(), "frame");
    return;
  }

  std::vector<std::string> expected{
      "willStart", "didStart", "frame", "begin", "end", "frame", "didStop failedToCapture"};
  expected.erase(std::ranges::find(expected, event) + 1, expected.end());
  if (!drops) {
    if (event != "willStart" && !event.starts_with("didStop")) expected.push_back("didStop none");
    EXPECT_TRUE(allWasTold());
    EXPECT_EQ(target->session(), nullptr);
  }
  auto told = events();
  told.erase(std::unique(told.begin(), told.end()), told.end());
  EXPECT_EQ(told, expected);
}

INSTANTIATE_TEST_SUITE_P(Events, CallbackTest,
                         testing::Combine(testing::Values("willStart", "didStart", "frame", "begin", "end",
                                                          "didStop failedToCapture"),
                                          testing::Values("Stops", "DropsLastReference", "StopsAndStarts")),
                         [](const auto& test) {
                           const auto& event = std::get<0>(test.param);
                           return event.substr(0, event.find(' ')) + std::get<1>(test.param);
                         });

TEST_F(SessionTest, aSessionStoppedInsideWillStartNeverTicksEvenIfSomebodyHoldsIt) {
  std::shared_ptr<Session> kept;
  on("willStart", [&] {
    kept = target->session();
    target->stop();
  });
  start();
  pass(1);
  EXPECT_TRUE(allWasTold());
}

TEST_F(SessionTest, startFromInsideDidStopSurvivesTheStop) {
  on("didStop none", [this] { start(); });
  start();
  pass(0);
  target->stop();
  pass(0);
  EXPECT_THAT(eventsWithoutFrames(),
              ElementsAre("willStart", "didStart", "didStop none", "willStart", "didStart"));
  EXPECT_EQ(target->delegate(), delegate);
}

// ── What happens on two threads at once ─────────────────────────────────────────────────────────────

TEST_F(SessionTest, aStopByAnotherThreadDuringACaptureIsFinalWhateverItGives) {
  std::vector<std::string> expected;
  for (const bool first : {true, false}) {
    for (const auto answer : {ScriptedTarget::frame, ScriptedTarget::failure, ScriptedTarget::nothing}) {
      const auto interrupted = [this, answer] {
        std::thread([this] { target->stop(); }).join();
        return answer();
      };
      start();
      if (!first) pass(0);
      pass(1, interrupted);
      expected.push_back("willStart");
      if (!first) expected.insert(expected.end(), {"didStart", "didStop none"});
    }
  }
  EXPECT_EQ(eventsWithoutFrames(), expected);
  EXPECT_TRUE(allWasTold());
}

TEST_F(SessionTest, eventsOfAnotherThreadWaitForTheOneUnderWayAndKeepTheirDelegate) {
  const auto later = std::make_shared<RecordingDelegate>();
  on("didStart", [&] {
    std::thread([&] {
      target->stop();  // returns although didStart is still under way
      target->start(later, nullptr);
    }).join();
    EXPECT_THAT(events(), ElementsAre("willStart", "didStart"));
    EXPECT_THAT(later->events(), IsEmpty());
  });
  start();
  machine->advance(0);
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "didStop none"));
  EXPECT_THAT(later->events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionTest, startsAndStopsRacingWithTicksKeepEveryCaptureWhole) {
  std::atomic<bool> done{false};
  std::thread host([&] {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (int round = 0; events().size() < 2000 && std::chrono::steady_clock::now() < limit; ++round) {
      start();
      for (int pause = round % 7; pause > 0; --pause) std::this_thread::yield();
      target->stop();
    }
    done = true;
  });
  while (!done) machine->advance(0.1);
  host.join();
  machine->advance(0.1);
  EXPECT_THAT(events(), Contains("didStart"));
  std::string previous = "didStop none";
  for (const std::string& event : eventsWithoutFrames()) {
    const bool allowed = event == "willStart" ? previous != "didStart"
                                              : previous == (event == "didStart" ? "willStart" : "didStart");
    ASSERT_TRUE(allowed) << event << " after " << previous;
    previous = event;
  }
  EXPECT_NE(previous, "didStart");
}

// ── Telling the delegate ────────────────────────────────────────────────────────────────────────────

TEST_F(SessionTest, everyEventButAFrameIsLoggedOnceAndThenToldEvenToADelegateThatThrows) {
  start();
  log.clear();
  std::size_t linesBefore = 0;
  delegate->react = [&](const std::string& event, const std::shared_ptr<Capturable>& told) {
    EXPECT_EQ(told, target);
    EXPECT_EQ(log.lines().size(), linesBefore + (event == "frame" ? 0 : 1)) << event;
    linesBefore = log.lines().size();
    throw std::runtime_error("host bug");
  };
  const NSError error{"domain", 3, "it broke"};
  const Dictionary userInfo{{"reason", std::string("busy")}, {"code", std::int32_t{4}}};
  target->sessionWillStartRunning();
  target->sessionDidFailToStartRunning(error);
  target->sessionDidStopRunning(&error);
  target->sessionDidBeginInterruption(&userInfo);
  target->sessionDidBeginInterruption(nullptr);
  target->sessionDidEndInterruption();
  target->sessionDidOutput(nullptr, 1.5);
  EXPECT_THAT(
      log.messages(LogLevel::info),
      ElementsAre("[T][Delegate] willStartRunning", "[T][Delegate] didFailToStartRunning (error: it broke)",
                  "[T][Delegate] didStopRunning (error: it broke)",
                  "[T][Delegate] didBeginInterruption (reason:busy,code:4)",
                  "[T][Delegate] didBeginInterruption ()", "[T][Delegate] didEndInterruption"));
  EXPECT_THAT(events(), ElementsAre("willStart", "willStart", "didFailToStart it broke", "didStop it broke",
                                    "begin 2", "begin", "end", "frame"));
  const auto troubles = machine->systemLog().troubles();
  ASSERT_EQ(troubles.size(), 7U);
  EXPECT_THAT(troubles[1], testing::AllOf(testing::HasSubstr("capturableDidFailToStartRunning"),
                                          testing::HasSubstr("host bug")));
  delegate.reset();
  target->sessionDidEndInterruption();
  target->sessionDidOutput(nullptr, 2);
  EXPECT_EQ(log.lines().size(), 7U);
}

TEST(SessionStatisticsTest, rateIsGivenOnlyForADurationAboveZero) {
  EXPECT_EQ(sessionStatistics(1, 0.04), "duration=0.0sec, captured=1(25.0fps)");
  EXPECT_EQ(sessionStatistics(3, -1), "duration=0sec, captured=3");
  EXPECT_EQ(sessionStatistics(3, std::nan("")), "duration=0sec, captured=3");
}

// ── Programming errors ──────────────────────────────────────────────────────────────────────────────

using SessionDeathTest = SessionTest;

TEST_F(SessionDeathTest, aTargetThatCannotBeToldEndsTheProcess) {
  class Mute final : public CaptureSource {
    Result<CVPixelBufferRef> capture() override { return ScriptedTarget::nothing(); }
  };
  EXPECT_DEATH(Session::make(*machine, std::make_shared<Mute>(), "[S]"), "Fatal error: invalid target");
  EXPECT_DEATH(static_cast<void>(target->Target::capture()), "Fatal error: subclass responsibility");
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
