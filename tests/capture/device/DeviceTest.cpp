#include "capture/device/CameraDevice.h"

#include "capture/RecordingDelegate.h"
#include "capture/device/ScreenDevice.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <thread>

namespace QelUtilVideo::device {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

const NSError kBusy{"QelUtilVideo.V4L2", 16, "the camera is busy"};

/// A camera and a display on a machine whose sessions do what the test says.
class DeviceTest : public testing::Test {
 protected:
  void SetUp() override {
    machine_->displays().set({{.id = 5, .name = "Left"}});
    camera_ = CameraDevice::make(Root::current(), wrapped_);
    log_.clear();
  }
  [[nodiscard]] SimulatedCaptureDevices& devices() const { return machine_->captureDevices(); }
  [[nodiscard]] std::shared_ptr<SimulatedCaptureSession> platformSession() const {
    const auto all = devices().sessions();
    return all.empty() ? nullptr : all.back();
  }
  void start() {
    EXPECT_TRUE(camera_->start(delegate_, nullptr));
    machine_->settle();
  }
  void deliver(int frames) {
    for (int i = 0; i < frames; ++i) {
      CVPixelBufferRef frame;
      ASSERT_EQ(CVPixelBufferCreate(2, 2, kCVPixelFormatType_32BGRA, frame), kCVReturnSuccess);
      platformSession()->deliver(frame);
      machine_->settle();
    }
  }
  /// What was logged since the last call, without the source's name.
  std::vector<std::string> lines() {
    std::vector<std::string> all;
    for (const std::string& line : log_.messages()) all.push_back(line.substr(line.find(']') + 1));
    log_.clear();
    return all;
  }
  static Dictionary with(const NSError& error) { return {{AVCaptureSessionErrorKey, error}}; }

  ScopedMachine machine_;
  LogCapture log_;
  std::shared_ptr<SimulatedDevice> wrapped_ = std::make_shared<SimulatedDevice>("usb-1", "Webcam");
  std::shared_ptr<CameraDevice> camera_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
};

TEST_F(DeviceTest, aCameraIsWhatItsDeviceIs) {
  EXPECT_EQ(camera_->uniqueID(), "usb-1");
  EXPECT_EQ(camera_->name(), "Webcam");
  EXPECT_TRUE(camera_->isCamera() && !camera_->isScreen() && !camera_->isWindow());
  EXPECT_EQ(camera_->device(), wrapped_);
  EXPECT_TRUE(camera_->isAvailable());
  wrapped_->connected = false;
  EXPECT_FALSE(camera_->isAvailable());
  EXPECT_FALSE(camera_->captureSession() || camera_->captureInput() || camera_->captureOutput());
  camera_->stop();
  EXPECT_THAT(lines(), ElementsAre(" stop"));
  start();
  EXPECT_EQ(camera_->captureSession(), platformSession());
  EXPECT_TRUE(camera_->captureInput() && camera_->captureOutput());
  EXPECT_EQ(platformSession()->source(), "usb-1");
}

TEST_F(DeviceTest, aCaptureGoesFromStartToStatistics) {
  EXPECT_TRUE(camera_->start(delegate_, nullptr));
  EXPECT_THAT(delegate_->events(), IsEmpty()) << "the caller waits for no device";
  EXPECT_THAT(lines(), ElementsAre(" start", " session init"));
  machine_->settle();
  EXPECT_THAT(lines(), ElementsAre(" session starting", "[Delegate] willStartRunning", " session started",
                                   "[Delegate] didStartRunning"));
  deliver(1);
  machine_->advance(2);
  deliver(9);
  EXPECT_THAT(delegate_->timestamps(), testing::Contains(102.0)) << "when it arrived";
  platformSession()->deliver(nullptr);
  machine_->settle();
  EXPECT_THAT(lines(), ElementsAre(" no image buffer in capture output"));
  camera_->stop();
  EXPECT_THAT(lines(), ElementsAre(" stop", "[Delegate] didStopRunning (no error)"));
  EXPECT_EQ(camera_->delegate(), nullptr);
  machine_->settle();
  EXPECT_THAT(lines(),
              ElementsAre(" session stopping", " session stopped",
                          " sample info: duration=2.0sec, captured=11(5.5fps) failed=1", " session deinit"));
  const auto events = delegate_->events();
  EXPECT_EQ(events.size(), 13U);
  EXPECT_EQ(events.back(), "didStop none");
}

TEST_F(DeviceTest, aSecondStartGoesOnWithTheSessionAndAStopBeforeTheFirstStartsNothing) {
  start();
  const auto other = std::make_shared<RecordingDelegate>();
  EXPECT_TRUE(camera_->start(other, nullptr));
  machine_->settle();
  EXPECT_EQ(devices().sessions().size(), 1U);
  EXPECT_THAT(other->events(), ElementsAre("willStart")) << "it runs already";
  deliver(1);
  EXPECT_EQ(other->events().back(), "frame");
  camera_->stop();
  machine_->settle();

  EXPECT_TRUE(camera_->start(delegate_, nullptr));
  const auto made = platformSession();
  camera_->stop();
  machine_->settle();
  EXPECT_EQ(made->starts, 0);
}

TEST_F(DeviceTest, whatCannotBeMadeIsAnErrorAndTheNextStartTriesAgain) {
  using Behaviour = SimulatedCaptureDevices::Behaviour;
  const std::vector<std::pair<Behaviour, std::string>> cases{{{.inputError = kBusy}, "the camera is busy"},
                                                             {{.takesInput = false}, "cannotAddInput"},
                                                             {{.takesOutput = false}, "cannotAddOutput"}};
  for (const auto& [behaviour, text] : cases) {
    devices().behave(behaviour);
    NSError error;
    EXPECT_FALSE(camera_->start(delegate_, &error));
    EXPECT_FALSE(camera_->start(delegate_, nullptr));
    EXPECT_EQ(error.description(), text);
    EXPECT_EQ(camera_->delegate(), delegate_);
    EXPECT_EQ(camera_->captureSession(), nullptr);
    EXPECT_THAT(lines(), ElementsAre(" start", " start"));
  }
  devices().behave({});
  start();
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart", "didStart"));

  const auto display = ScreenDevice::make(Root::current(), machine_->displays().screens()[0]);
  devices().behave({.hasScreenInputs = false});
  NSError error;
  EXPECT_FALSE(display->start(delegate_, &error));
  EXPECT_EQ(error, (NSError{"QelUtilVideo.device.ScreenDevice.Error", 0, "failedToCreateInput"}));
}

TEST_F(DeviceTest, anErrorBeforeTheStartIsAFailureAndLaterAStop) {
  devices().behave({.start = [](SimulatedCaptureSession& session) {
    session.post(AVCaptureSessionRuntimeErrorNotification, with(kBusy));
  }});
  start();
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart", "didFailToStart the camera is busy"));
  platformSession()->post(AVCaptureSessionRuntimeErrorNotification);
  EXPECT_THAT(lines(), testing::Contains(" session runtimeError ()"));
  EXPECT_EQ(delegate_->events().size(), 2U) << "of no error nobody is told";

  platformSession()->run();
  deliver(1);
  (void)lines();
  platformSession()->post(AVCaptureSessionRuntimeErrorNotification, with(kBusy));
  EXPECT_THAT(lines(), ElementsAre(testing::StartsWith(" session runtimeError ("), " session stopped",
                                   "[Delegate] didStopRunning (error: the camera is busy)"));
  machine_->settle();
  EXPECT_THAT(lines(), ElementsAre(" session stopping", " session stopped"));
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart", "didFailToStart the camera is busy", "didStart",
                                               "frame", "didStop the camera is busy"));
}

TEST_F(DeviceTest, aStopOfThePlatformsIsToldWithItsErrorAndOnlyOnce) {
  start();
  platformSession()->post(AVCaptureSessionDidStopRunningNotification, with(kBusy));
  platformSession()->post(AVCaptureSessionDidStopRunningNotification, {{AVCaptureSessionErrorKey, "text"}});
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart", "didStart", "didStop the camera is busy"));
}

TEST_F(DeviceTest, interruptionsCloseTheMeasuringInterval) {
  start();
  deliver(1);
  machine_->advance(1);
  platformSession()->post(AVCaptureSessionWasInterruptedNotification, {{"reason", "frozen"}});
  machine_->advance(5);
  platformSession()->post(AVCaptureSessionInterruptionEndedNotification);
  EXPECT_THAT(lines(), testing::IsSupersetOf({" session begin interruption",
                                              "[Delegate] didBeginInterruption (reason:frozen)",
                                              " session end interruption", "[Delegate] didEndInterruption"}));
  deliver(1);
  machine_->advance(1);
  camera_->stop();
  machine_->settle();
  EXPECT_THAT(lines(), testing::Contains(" sample info: duration=2.0sec, captured=2(1.0fps) failed=0"));
  EXPECT_THAT(delegate_->events(),
              ElementsAre("willStart", "didStart", "frame", "begin 1", "end", "frame", "didStop none"));
}

TEST_F(DeviceTest, oldSystemsTellOfNoInterruptions) {
  machine_->systemVersion().set(10, 13);
  start();
  platformSession()->post(AVCaptureSessionWasInterruptedNotification);
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart", "didStart"));
}

TEST_F(DeviceTest, aDeviceThatIsLetGoOfStopsAtOnce) {
  start();
  const auto session = platformSession();
  delegate_->react = [&](const std::string& event, RecordingDelegate::Capturables) {
    if (event == "frame") camera_.reset();
  };
  deliver(1);
  EXPECT_FALSE(session->isRunning);
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart", "didStart", "frame"));
  EXPECT_THAT(lines(), testing::Contains(" deinit"));
}

TEST_F(DeviceTest, aHostMayStartAgainWhenItIsToldOfTheEnd) {
  for (const bool isError : {false, true}) {
    const auto told = std::make_shared<RecordingDelegate>();
    const auto next = std::make_shared<RecordingDelegate>();
    told->react = [&](const std::string& happened, RecordingDelegate::Capturables source) {
      EXPECT_TRUE(!happened.starts_with("didStop") || source->start(next));
    };
    EXPECT_TRUE(camera_->start(told, nullptr));
    machine_->settle();
    if (isError) {
      platformSession()->isRunning = false;
      platformSession()->post(AVCaptureSessionRuntimeErrorNotification, with({"test", 5, "broken"}));
    } else {
      camera_->stop();
    }
    machine_->settle();
    EXPECT_TRUE(platformSession()->isRunning);
    EXPECT_THAT(next->events(), ElementsAre("willStart", "didStart"));
    EXPECT_EQ(camera_->delegate(), next);
    camera_->stop();
    machine_->settle();
  }
}

TEST_F(DeviceTest, nothingStartsForADeviceThatHasGone) {
  EXPECT_TRUE(camera_->start(delegate_, nullptr));
  const auto session = platformSession();
  camera_.reset();
  machine_->settle();
  EXPECT_FALSE(session->isRunning);
  EXPECT_THAT(delegate_->events(), testing::IsEmpty());
  EXPECT_THAT(lines(), ElementsAre(" start", " session init", " deinit", testing::StartsWith(" sample info"),
                                   " session deinit"));
}

TEST_F(DeviceTest, aHostMayStopAndStartFromInsideEachEvent) {
  for (const std::string event : {"willStart", "didStart", "frame", "didStop none"}) {
    const auto told = std::make_shared<RecordingDelegate>();
    const auto next = std::make_shared<RecordingDelegate>();
    told->react = [&](const std::string& happened, RecordingDelegate::Capturables source) {
      if (happened != event) return;
      source->stop();
      EXPECT_TRUE(source->start(next));
    };
    EXPECT_TRUE(camera_->start(told, nullptr));
    machine_->settle();
    if (event.starts_with("f") || event.starts_with("didStop")) deliver(1);
    if (event == "didStop none") camera_->stop();
    machine_->settle();
    EXPECT_THAT(next->events(), ElementsAre("willStart", "didStart")) << event;
    camera_->stop();
    machine_->settle();
    EXPECT_EQ(next->events().back(), "didStop none");
  }
}

TEST_F(DeviceTest, survivesStartsAndStopsOfManyThreads) {
  machine_->dispatch().setSerialQueues(SerialQueues::byHand);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 200; ++n) {
        EXPECT_TRUE(camera_->start(delegate_, nullptr));
        if (const auto session = platformSession()) session->run();
        camera_->stop();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  machine_->runQueues();
  camera_->stop();
  machine_->runQueues();
  for (const auto& session : devices().sessions()) EXPECT_FALSE(session->isRunning);
}

TEST_F(DeviceTest, aDisplayKeepsItsIdentityOnItsNewScreen) {
  const auto display = ScreenDevice::make(Root::current(), machine_->displays().screens()[0]);
  EXPECT_THAT(lines(), ElementsAre(" init (displayID=5, name=Left)"));
  EXPECT_EQ(display->uniqueID(), "QelUtilVideo.CapturableScreen.AV.CGDirectDisplayID.5");
  EXPECT_TRUE(display->isScreen() && !display->isCamera() && !display->isWindow());
  EXPECT_TRUE(display->isAvailable() && display->snapshotImage());
  machine_->displays().set({});
  EXPECT_FALSE(display->isAvailable() || display->snapshotImage());
  machine_->systemVersion().set(10, 14);
  EXPECT_EQ(display->name(), "Unknown Screen");

  machine_->displays().set({{.id = 6, .hasScreenNumber = false}});
  EXPECT_EQ(ScreenDevice::make(Root::current(), machine_->displays().screens()[0]), nullptr);
  EXPECT_EQ(ScreenDevice::make(Root::current(), nullptr), nullptr);
  EXPECT_THAT(lines(), IsEmpty());
}

}  // namespace
}  // namespace QelUtilVideo::device
