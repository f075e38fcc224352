#include "capture/RecordingDelegate.h"
#include "capture/windowlist/Error.h"
#include "capture/windowlist/Target.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

namespace QelUtilVideo::windowlist {
namespace {

using testing::ElementsAre;

CVPixelBufferRef frame() {
  CVPixelBufferRef buffer;
  static_cast<void>(CVPixelBufferCreate(2, 2, kCVPixelFormatType_32BGRA, buffer));
  return buffer;
}

Result<CVPixelBufferRef> failure() { return makeError(Error::failedToCapture); }

struct RacingTarget final : Target {
  explicit RacingTarget(Platform& platform) : Target(platform, "[T]") {}
  std::string uniqueID() const override { return "racing"; }
  std::string name() const override { return "Racing"; }
  bool isAvailable() const override { return true; }
  bool isCamera() const override { return false; }
  bool isScreen() const override { return true; }
  bool isWindow() const override { return false; }
  Result<CVPixelBufferRef> capture() override { return answer(); }
  std::shared_ptr<CapturableOutputDelegate> delegate() const override {
    if (const auto act = std::exchange(onDelegate, nullptr)) act();
    return Target::delegate();
  }
  std::function<Result<CVPixelBufferRef>()> answer = frame;
  mutable std::function<void()> onDelegate;  ///< once, when somebody asks for the delegate
};

/// What two threads do at once, staged: one acts while a line or an event of the other is under way.
struct SessionRacesTest : testing::Test {
  /// Another thread acts, once.
  static void whenLogged(const std::string& line, const std::function<void()>& act) {
    const auto acted = std::make_shared<std::atomic_flag>();
    const auto sink = [=](const std::string& text, const char*, std::uint64_t) {
      if (text.ends_with(line) && !acted->test_and_set()) std::thread(act).join();
    };
    setupLogger(Logger(sink, sink, sink));
  }
  void whenTold(const std::string& event, const std::function<void()>& act) {
    first->react = [=](const std::string& told, const auto&) { told == event ? act() : void(); };
  }
  void startAndTick(const std::shared_ptr<RecordingDelegate>& delegate) {
    target->start(delegate, nullptr);
    machine->advance(0);
  }
  void restart() {
    target->stop();
    target->answer = frame;
    target->start(second, nullptr);
  }

  ScopedMachine machine;
  std::shared_ptr<RecordingDelegate> first = std::make_shared<RecordingDelegate>();
  std::shared_ptr<RecordingDelegate> second = std::make_shared<RecordingDelegate>();
  std::shared_ptr<RacingTarget> target = std::make_shared<RacingTarget>(*machine);
};

TEST_F(SessionRacesTest, aFailureIsToldToItsOwnDelegateEvenIfTheTargetIsRestarted) {
  startAndTick(first);
  whenLogged("[T] session stopping", [this] { restart(); });
  target->answer = failure;
  machine->advance(0.1);
  EXPECT_THAT(first->events(), ElementsAre("willStart", "didStart", "frame", "didStop failedToCapture"));
  EXPECT_THAT(second->events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionRacesTest, aStartKeepsItsDelegateWhenTheEndedSessionBeforeItIsStopped) {
  startAndTick(first);
  target->answer = failure;
  machine->advance(0.1);
  target->answer = frame;
  whenLogged("[T] session init", [this] { target->stop(); });
  startAndTick(second);
  EXPECT_THAT(second->events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionRacesTest, aSessionThatIsStoppedWhileItStartsAnnouncesNothing) {
  whenLogged("[T] session starting", [this] { restart(); });
  startAndTick(first);
  EXPECT_THAT(first->events(), testing::IsEmpty());
  EXPECT_THAT(second->events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionRacesTest, twoStartsAtOnceMakeOneCaptureAndNoSinkRunsUnderALock) {
  whenLogged("[T] session init", [this] {
    target->start(second, nullptr);
    whenLogged("[T] session deinit", [this] { static_cast<void>(target->delegate()); });
  });
  startAndTick(first);
  EXPECT_THAT(first->events(), ElementsAre("didStart", "frame"));
}

TEST_F(SessionRacesTest, framesWaitForTheEventsBeforeThem) {
  startAndTick(first);
  whenTold("didStop none", [this] { std::thread([this] { startAndTick(second); }).join(); });
  target->stop();
  machine->settle();
  EXPECT_THAT(second->events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionRacesTest, aFrameOfAnEndedSessionDoesNotReachTheNextDelegate) {
  machine->dispatch().setSerialQueues(SerialQueues::byHand);
  startAndTick(first);
  std::jthread host;
  target->onDelegate = [&] {
    host = std::jthread([this] { restart(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // it may have to wait for the frame
  };
  machine->runQueues();
  host.join();
  EXPECT_THAT(second->events(), ElementsAre("willStart"));
}

TEST_F(SessionRacesTest, aTickThatIsOvertakenInsideACallbackGivesUp) {
  target->answer = [asked = 0]() mutable { return asked++ == 0 ? CVPixelBufferRef() : frame(); };
  whenTold("didStart", [this] {
    machine->clock().jump(2);
    machine->runMain();
  });
  startAndTick(first);
  EXPECT_THAT(first->events(), ElementsAre("willStart", "didStart", "frame"));
}

TEST_F(SessionRacesTest, aTickThatStillWaitsAfterTheStopSaysSo) {
  const LogCapture log;
  machine->dispatch().setMainQueueServed(false);
  startAndTick(first);
  const auto session = target->session();
  target->stop();
  machine->runMain();
  EXPECT_EQ(log.messages().back(), "[T] session already stopped");
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
