#include "platform/linux/core/LinuxCaptureSession.h"

#include "platform/linux/core/StreamThread.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <functional>
#include <thread>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;

const NSError kGone{"test", 19, "gone"};

/// A device whose stream does what the test says, on a thread of its own.
class ScriptedInput final : public LinuxCaptureInput {
 public:
  using Script = std::function<void(StreamReceiver&, const StreamThread::Stop&)>;
  explicit ScriptedInput(Script script) : script_(std::move(script)) {}

  [[nodiscard]] Result<std::unique_ptr<CaptureStream>> open(
      const std::shared_ptr<StreamReceiver>& receiver) override {
    if (!script_) return kGone;
    struct Stream final : CaptureStream {
      explicit Stream(std::function<void(const StreamThread::Stop&)> run) : thread(std::move(run)) {}
      StreamThread thread;
    };
    return std::unique_ptr<CaptureStream>(std::make_unique<Stream>(
        [receiver, script = script_](const StreamThread::Stop& stop) { script(*receiver, stop); }));
  }

 private:
  const Script script_;
};

/// Counts samples, slowly if it has to.
struct SlowReceiver final : AVCaptureVideoDataOutputSampleBufferDelegate {
  void captureOutput(AVCaptureVideoDataOutput&, const CMSampleBuffer& sample) override {
    times.with([&](auto& all) { all.push_back(sample.presentationTime); });
  }
  Synchronised<std::vector<double>> times;
};

class LinuxCaptureSessions : public testing::Test {
 protected:
  LinuxCaptureSessions() {
    machine_->notificationCenter().addObserver(
        std::nullopt, session_.get(), [this](const NSNotification& told) {
          const std::string name = told.name.substr(std::string("AVCaptureSession").size());
          told_.with([&](auto& all) { all.push_back(name.substr(0, name.find("Notification"))); });
          if (react) react(name);
        });
    session_->addOutput(output_);
    output_->setSampleBufferDelegate(receiver_, machine_->dispatch().makeQueue("test"));
  }
  void setInput(ScriptedInput::Script script) {
    session_->addInput(std::make_shared<ScriptedInput>(std::move(script)));
  }
  [[nodiscard]] bool eventually(const std::function<bool()>& isSo) {
    for (int i = 0; i < 2000 && !isSo(); ++i) std::this_thread::sleep_for(5ms);
    return isSo();
  }
  [[nodiscard]] std::vector<std::string> told() const { return told_.copy(); }

  ScopedMachine machine_;
  std::function<void(const std::string&)> react;
  Synchronised<std::vector<std::string>> told_;
  std::shared_ptr<LinuxCaptureSession> session_ =
      std::make_shared<LinuxCaptureSession>(machine_->notificationCenter());
  std::shared_ptr<LinuxVideoDataOutput> output_ = std::make_shared<LinuxVideoDataOutput>();
  std::shared_ptr<SlowReceiver> receiver_ = std::make_shared<SlowReceiver>();
};

TEST_F(LinuxCaptureSessions, tellOfTheirStartAndStopOnceAndKeepTheLatestSampleForASlowReceiver) {
  std::atomic<int> sent = 0;
  setInput([&](StreamReceiver& to, const StreamThread::Stop& stop) {
    while (stop.sleepUntil(std::chrono::steady_clock::now() + 1ms)) to.sample({nullptr, double(++sent)});
  });
  session_->stopRunning();
  session_->startRunning();
  session_->startRunning();
  EXPECT_TRUE(eventually([&] { return sent > 5; }));
  machine_->settle();
  EXPECT_EQ(receiver_->times.copy().size(), 1U);
  EXPECT_GT(receiver_->times.copy()[0], 1) << "the latest";
  session_->stopRunning();
  session_->stopRunning();
  const int last = sent;
  machine_->settle();
  std::this_thread::sleep_for(10ms);
  EXPECT_EQ(sent, last);
  EXPECT_EQ(receiver_->times.copy().size(), 1U) << "what waited is forgotten";
  EXPECT_THAT(told(), ElementsAre("DidStartRunning", "DidStopRunning"));
}

TEST_F(LinuxCaptureSessions, tellOfAFailureAfterTheStartHoweverEarlyItCame) {
  setInput([](StreamReceiver& to, const StreamThread::Stop&) { to.failed(kGone); });
  for (int i = 0; i < 50; ++i) {
    session_->startRunning();
    EXPECT_TRUE(eventually([&] { return told().size() == static_cast<std::size_t>(2 * i + 2); }));
    EXPECT_EQ(told()[static_cast<std::size_t>(2 * i)], "DidStartRunning");
    EXPECT_EQ(told()[static_cast<std::size_t>(2 * i + 1)], "RuntimeError");
    if (i % 2) session_->stopRunning();
  }
}

TEST_F(LinuxCaptureSessions, tellOfTheEndOfAnInterruptionAfterItHoweverLongSomebodyListens) {
  std::atomic<bool> wasInterrupted = false, isBeingTold = false, isOver = false;
  setInput([&](StreamReceiver& to, const StreamThread::Stop&) {
    to.interrupted("too early");
    wasInterrupted = true;
    EXPECT_TRUE(eventually([&] { return isBeingTold.load(); }));
    to.resumed();
    isOver = true;
  });
  react = [&](const std::string& name) {
    EXPECT_TRUE(!name.starts_with("DidStart") || eventually([&] { return wasInterrupted.load(); }));
    if (!name.starts_with("WasInterrupted")) return;
    isBeingTold = true;
    EXPECT_TRUE(eventually([&] { return isOver.load(); }));
  };
  session_->startRunning();
  EXPECT_TRUE(eventually([&] { return told().size() == 3; }));
  EXPECT_THAT(told(), ElementsAre("DidStartRunning", "WasInterrupted", "InterruptionEnded"));
  session_->stopRunning();
}

TEST_F(LinuxCaptureSessions, tellOfAnInterruptionHoweverEarlyItCameAndDeliverNothingAfterAFailure) {
  std::atomic<bool> isOver = false;
  setInput([&](StreamReceiver& to, const StreamThread::Stop& stop) {
    to.interrupted("too early");
    isOver = true;
    (void)stop.sleepUntil(std::chrono::steady_clock::now() + 20ms);
    to.resumed();
    to.sample({nullptr, 1});
    to.failed(kGone);
  });
  react = [&](const std::string& name) {
    // Whoever is told of the start takes his time.
    EXPECT_TRUE(!name.starts_with("DidStart") || eventually([&] { return isOver.load(); }));
  };
  session_->startRunning();
  EXPECT_TRUE(eventually([&] { return told().size() == 4; }));
  machine_->settle();
  EXPECT_THAT(told(), ElementsAre("DidStartRunning", "WasInterrupted", "InterruptionEnded", "RuntimeError"));
  EXPECT_EQ(receiver_->times.copy().size(), 0U) << "what waited belonged to a capture that is over";
}

TEST_F(LinuxCaptureSessions, tellOfADeviceThatCannotBeOpened) {
  setInput(nullptr);
  session_->startRunning();
  EXPECT_THAT(told(), ElementsAre("RuntimeError"));
  EXPECT_FALSE(session_->canAddOutput(*output_)) << "it has one";
  EXPECT_FALSE(session_->canAddInput(SimulatedInput(""))) << "somebody else's";
}

TEST_F(LinuxCaptureSessions, mayBeStoppedAndDroppedFromWhatTheyTell) {
  const auto run = [](StreamReceiver& to, const StreamThread::Stop& stop) {
    if (stop.sleepUntil(std::chrono::steady_clock::now() + 1ms)) to.failed(kGone);
  };
  setInput(run);
  react = [&](const std::string&) { session_->stopRunning(); };
  session_->startRunning();
  EXPECT_THAT(told(), ElementsAre("DidStartRunning", "DidStopRunning"));

  std::atomic<bool> isDropped = false;
  react = [&](const std::string& name) {
    if (name.starts_with("Runtime")) session_.reset(), isDropped = true;
  };
  session_->startRunning();
  EXPECT_TRUE(eventually([&] { return isDropped.load(); }));
}

}  // namespace
}  // namespace QelUtilVideo
