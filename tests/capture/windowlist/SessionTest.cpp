#include "capture/windowlist/Session.h"

#include "capture/RecordingDelegate.h"
#include "capture/windowlist/ScriptedTarget.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace QelUtilVideo::windowlist {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kOutputQueue = "QelUtilVideo.CapturableWindow.OutputQueue";

class SessionTest : public testing::Test {
 protected:
  void start() { EXPECT_TRUE(target->start(delegate, nullptr)); }
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
    const auto logged = std::count_if(messages.begin(), messages.end(), [](const auto& message) {
      return message.starts_with("[T][Delegate]");
    });
    return static_cast<std::size_t>(logged) == eventsWithoutFrames().size();
  }

  ScopedMachine machine;
  LogCapture log;
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
  bool destroyed = false;
  bool reacted = false;
  std::shared_ptr<ScriptedTarget> target =
      std::make_shared<ScriptedTarget>(*machine, [this] { destroyed = true; });
};

TEST_F(SessionTest, framesArriveEveryTenthOfASecondWithTheTimeBeforeTheirCapture) {
  target->answer = [this] {
    machine->clock().jump(0.03);
    return ScriptedTarget::frame();
  };
  const double begin = machine->clock().CACurrentMediaTime();
  start();
  EXPECT_THAT(events(), ElementsAre("willStart"));
  machine->advance(0.2);
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
  EXPECT_THAT(log.messages(),
              ElementsAre("[T] start", "[T] session init", "[T] session starting",
                          "[T][Delegate] willStartRunning", "[T] stop", "[T] session stopping",
                          "[T] sample info: duration=0sec, captured=0", "[T] session deinit", "[T] stop"));
  EXPECT_EQ(target->session(), nullptr);
  EXPECT_EQ(target->delegate(), nullptr);
}

TEST_F(SessionTest, secondStartOnlyReplacesTheDelegate) {
  start();
  const auto second = std::make_shared<RecordingDelegate>();
  target->start(second, nullptr);
  EXPECT_EQ(machine->clock().timerCount(), 1U);
  machine->advance(0);
  EXPECT_THAT(events(), ElementsAre("willStart"));
  EXPECT_THAT(second->events(), ElementsAre("didStart", "frame"));
  EXPECT_THAT(log.messages(), Contains("[T] session starting").Times(1));
}

TEST_F(SessionTest, aFirstCaptureThatFailsIsAFailureToStart) {
  target->answer = ScriptedTarget::failure;
  start();
  machine->advance(1);
  target->stop();
  EXPECT_THAT(events(), ElementsAre("willStart", "didFailToStart failedToCapture"));
}

TEST_F(SessionTest, aLaterFailureIsAStopAndTheNextStartIsAFreshOne) {
  start();
  machine->advance(0.1);
  target->answer = ScriptedTarget::failure;
  machine->advance(1);
  EXPECT_THAT(eventsWithoutFrames(), ElementsAre("willStart", "didStart", "didStop failedToCapture"));
  target->answer = ScriptedTarget::frame;
  start();
  machine->advance(0);
  target->stop();
  EXPECT_THAT(eventsWithoutFrames(), ElementsAre("willStart", "didStart", "didStop failedToCapture",
                                                 "willStart", "didStart", "didStop none"));
  EXPECT_THAT(log.messages(LogLevel::warning), IsEmpty());
}

TEST_F(SessionTest, aSourceWithNothingToGiveIsInterruptedOnce) {
  target->answer = ScriptedTarget::nothing;
  start();
  machine->advance(1);
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "begin"));
  target->stop();
  EXPECT_THAT(log.messages(), Contains("[T] sample info: duration=0sec, captured=0"));
}

TEST_F(SessionTest, interruptedTimeDoesNotCount) {
  start();
  machine->advance(1.95);
  target->answer = ScriptedTarget::nothing;
  machine->advance(1);
  target->answer = ScriptedTarget::frame;
  machine->advance(3.05);
  target.reset();
  EXPECT_THAT(eventsWithoutFrames(), ElementsAre("willStart", "didStart", "begin", "end"));
  EXPECT_THAT(log.messages(), Contains("[T] sample info: duration=5.0sec, captured=51(10.2fps)"));
}

TEST_F(SessionTest, framesStillQueuedAtTheStopAreDropped) {
  machine->dispatch().setSerialQueues(SerialQueues::byHand);
  start();
  machine->advance(0.2);
  EXPECT_EQ(machine->dispatch().pendingOn(kOutputQueue), 3U);
  target->stop();
  EXPECT_THAT(log.messages(), Not(Contains("[T] session deinit")));
  machine->runQueues();
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "didStop none"));
  EXPECT_THAT(log.messages(), Contains("[T] session deinit"));

  start();
  machine->advance(0);
  target->answer = ScriptedTarget::failure;
  machine->advance(0.1);
  EXPECT_EQ(machine->dispatch().pendingOn(kOutputQueue), 1U);
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

TEST_F(SessionTest, aDestroyedTargetEndsItsSessionSilently) {
  machine->dispatch().setSerialQueues(SerialQueues::byHand);
  start();
  machine->advance(0.1);
  target.reset();
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(machine->clock().timerCount(), 0U);
  machine->runQueues();
  machine->advance(1);
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart"));
  EXPECT_THAT(log.messages(), Contains("[T] session deinit"));
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

class CallbackTest : public SessionTest, public testing::WithParamInterface<const char*> {
 protected:
  /// Goes through every event there is, ending with a failure.
  void runThroughEverything() {
    start();
    machine->advance(0.1);
    if (target) target->answer = ScriptedTarget::nothing;
    machine->advance(0.2);
    if (target) target->answer = ScriptedTarget::frame;
    machine->advance(0.2);
    if (target) target->answer = ScriptedTarget::failure;
    machine->advance(0.5);
  }
  /// What is told up to and including the event that is reacted to.
  [[nodiscard]] static std::vector<std::string> upTo(const std::string& event) {
    const std::vector<std::string> all{
        "willStart", "didStart", "frame", "begin", "end", "frame", "didStop failedToCapture"};
    return {all.begin(), std::find(all.begin(), all.end(), event) + 1};
  }
  [[nodiscard]] std::vector<std::string> eventsWithOneFrameAtMost() const {
    auto all = delegate->events();
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
  }
};
INSTANTIATE_TEST_SUITE_P(Events, CallbackTest,
                         testing::Values("willStart", "didStart", "frame", "begin", "end",
                                         "didStop failedToCapture"),
                         [](const auto& test) {
                           const std::string name = test.param;
                           return name.substr(0, name.find(' '));
                         });

TEST_P(CallbackTest, stopEndsTheCaptureThereAndThen) {
  const std::string event = GetParam();
  on(event, [this] { target->stop(); });
  runThroughEverything();
  auto expected = upTo(event);
  if (event != "willStart" && !event.starts_with("didStop")) expected.push_back("didStop none");
  EXPECT_EQ(eventsWithOneFrameAtMost(), expected);
  EXPECT_TRUE(allWasTold());
  EXPECT_EQ(target->session(), nullptr);
  EXPECT_EQ(machine->clock().timerCount(), 0U);
  EXPECT_THAT(log.messages(), Contains("[T] session deinit").Times(1));
  if (event == "didStart") {
    EXPECT_THAT(log.messages(), Contains("[T] sample info: duration=0sec, captured=0"));
  }
}

TEST_P(CallbackTest, lastReferenceDroppedEndsTheCaptureSilently) {
  const std::string event = GetParam();
  on(event, [this] { target.reset(); });
  runThroughEverything();
  EXPECT_EQ(eventsWithOneFrameAtMost(), upTo(event));
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(machine->clock().timerCount(), 0U);
  EXPECT_THAT(log.messages(), Contains("[T] session deinit").Times(1));
}

TEST_P(CallbackTest, stopAndStartLeaveOneFreshCapture) {
  on(GetParam(), [this] {
    target->stop();
    target->answer = ScriptedTarget::frame;
    start();
  });
  start();
  machine->advance(0.1);
  if (!reacted) target->answer = ScriptedTarget::nothing;
  machine->advance(0.1);
  if (!reacted) target->answer = ScriptedTarget::frame;
  machine->advance(0.1);
  if (!reacted) target->answer = ScriptedTarget::failure;
  machine->advance(0.1);
  ASSERT_TRUE(reacted);
  EXPECT_EQ(machine->clock().timerCount(), 1U);
  EXPECT_EQ(target->delegate(), delegate);
  EXPECT_EQ(events().back(), "frame");
  EXPECT_THAT(log.messages(), Contains("[T] session deinit").Times(1));
}

TEST_F(SessionTest, startFromInsideWillStartChangesNothing) {
  on("willStart", [this] { start(); });
  start();
  machine->advance(0);
  EXPECT_THAT(events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionTest, aSessionStoppedInsideWillStartNeverTicksEvenIfSomebodyHoldsIt) {
  std::shared_ptr<Session> kept;
  on("willStart", [&] {
    kept = target->session();
    target->stop();
  });
  start();
  machine->advance(1);
  EXPECT_TRUE(allWasTold());
}

TEST_F(SessionTest, startFromInsideDidStopSurvivesTheStop) {
  on("didStop none", [this] { start(); });
  start();
  machine->advance(0);
  target->stop();
  machine->advance(0);
  EXPECT_THAT(eventsWithoutFrames(),
              ElementsAre("willStart", "didStart", "didStop none", "willStart", "didStart"));
  EXPECT_EQ(target->delegate(), delegate);
  EXPECT_EQ(machine->clock().timerCount(), 1U);
}

// ── What happens on two threads at once ─────────────────────────────────────────────────────────────

TEST_F(SessionTest, aStopByAnotherThreadDuringTheFirstCaptureIsFinal) {
  target->answer = [this] {
    std::thread([this] { target->stop(); }).join();
    return ScriptedTarget::frame();
  };
  start();
  machine->advance(1);
  EXPECT_THAT(events(), ElementsAre("willStart"));
  EXPECT_TRUE(allWasTold());
}

TEST_F(SessionTest, aStopByAnotherThreadDuringALaterCaptureDropsTheFrameAndTheError) {
  for (const auto answer : {ScriptedTarget::frame, ScriptedTarget::failure, ScriptedTarget::nothing}) {
    target->answer = ScriptedTarget::frame;
    start();
    machine->advance(0);
    target->answer = [this, answer] {
      std::thread([this] { target->stop(); }).join();
      return answer();
    };
    machine->advance(1);
  }
  EXPECT_THAT(eventsWithoutFrames(),
              ElementsAre("willStart", "didStart", "didStop none", "willStart", "didStart", "didStop none",
                          "willStart", "didStart", "didStop none"));
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
