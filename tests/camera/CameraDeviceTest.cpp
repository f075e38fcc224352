#include "support/DeviceStage.h"
#include "support/camera/ColourBars.h"
#include "support/camera/EmulatedCamera.h"
#include "support/camera/UdevTestbed.h"

#include <QelUtilVideo/CapturableCamera.h>
#include <QelUtilVideo/CapturableDeviceManager.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <gmock/gmock.h>
#include <unistd.h>

#include <filesystem>
#include <map>

/// The preloaded library comes before the sanitizer's.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "verify_asan_link_order=0";
}

namespace QelUtilVideo {
namespace {

using qeltest::EmulatedCamera;
using qeltest::UdevTestbed;
using testing::ElementsAre;
using testing::IsEmpty;
using Cameras = std::vector<std::shared_ptr<CapturableCamera>>;

/// Emulated cameras, and the library on the real platform in a system that has only those.
class CameraDevices : public DeviceStage {
 protected:
  void SetUp() override {
    if (const auto why = EmulatedCamera::whyNot()) GTEST_SKIP() << *why;
    if (const auto why = UdevTestbed::whyNot()) GTEST_SKIP() << *why;
    ::unsetenv("DISPLAY");  // NOLINT(concurrency-mt-unsafe): no threads yet
    udev_ = std::make_unique<UdevTestbed>();
  }
  void TearDown() override {
    camera_.reset();
    DeviceStage::TearDown();
    emulated_.clear();
    udev_.reset();
  }
  /// A camera at a port, called "Acme Cam", which those who list devices know.
  EmulatedCamera& plug(const std::string& name = "video0", const std::string& formats = "YUYV:640x480@30",
                       std::vector<std::string> arguments = {}) {
    const std::string path = "/dev/shm/qel_" + std::to_string(::getpid()) + name;
    auto camera =
        EmulatedCamera::start({.formats = formats, .arguments = std::move(arguments), .path = path});
    EXPECT_TRUE(camera);
    emulated_[name] = std::move(camera);
    udev_->plug(
        {.name = name, .path = path, .serial = "Acme_Cam", .port = "pci-0:" + name, .product = "Acme Cam"});
    return *emulated_[name];
  }
  void unplug(const std::string& name = "video0") {
    emulated_[name]->command("vanish");
    udev_->unplug(name);
  }
  [[nodiscard]] bool countIs(std::size_t count) {
    return serveUntil([&] { return CapturableDeviceManager::cameraDevices().size() == count; });
  }
  /// Plugs one in and takes it.
  EmulatedCamera& begin(const std::string& formats = "YUYV:640x480@30",
                        std::vector<std::string> arguments = {}) {
    EmulatedCamera& emulated = plug("video0", formats, std::move(arguments));
    DeviceStage::begin();
    const Cameras cameras = CapturableDeviceManager::cameraDevices();
    EXPECT_EQ(cameras.size(), 1U);
    if (!cameras.empty()) camera_ = cameras[0];
    return emulated;
  }
  /// Whether the last frame shows the bars, to within so many code values.
  void expectBars(std::size_t width, std::size_t height, int tolerance) const {
    const auto frame = delegate_->lastFrame();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->format(), kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
    ASSERT_EQ(frame->width(), width);
    ASSERT_EQ(frame->height(), height);
    const std::size_t bar = width / qeltest::kColourBars.size();
    for (std::size_t i = 0; i < qeltest::kColourBars.size(); ++i) {
      const std::size_t x = i * bar + bar / 2, y = height / 3;
      EXPECT_NEAR(byteAt(0, x, y), qeltest::kColourBars[i].y, tolerance) << i;
      EXPECT_NEAR(byteAt(1, x / 2 * 2, y / 2), qeltest::kColourBars[i].cb, tolerance) << i;
      EXPECT_NEAR(byteAt(1, x / 2 * 2 + 1, y / 2), qeltest::kColourBars[i].cr, tolerance) << i;
    }
  }
  static std::size_t entriesOf(const char* folder) {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
  }

  std::unique_ptr<UdevTestbed> udev_;
  std::map<std::string, std::unique_ptr<EmulatedCamera>> emulated_;
  std::shared_ptr<CapturableCamera> camera_;
};

TEST_F(CameraDevices, comeAndGoAndAreKnownAgainByTheirPort) {
  plug("video10");
  plug("video2");
  const auto metadata = EmulatedCamera::start(
      {.arguments = {"--kind", "metadata"}, .path = "/dev/shm/qel_m" + std::to_string(::getpid())});
  udev_->plug({.name = "video3", .path = metadata->path(), .serial = {}, .port = {}, .product = "No camera"});
  DeviceStage::begin();
  const Cameras first = CapturableDeviceManager::cameraDevices();
  ASSERT_EQ(first.size(), 2U);
  EXPECT_NE(first[0]->uniqueID(), first[1]->uniqueID()) << "two of one model";
  EXPECT_THAT(first[0]->uniqueID(), testing::EndsWith("pci-0:video2.0"));
  EXPECT_EQ(first[0]->name(), "Acme Cam");
  EXPECT_TRUE(first[0]->isAvailable());

  std::vector<std::string> told;
  const auto token = NotificationCenter::defaultCenter().addObserver(
      CapturableDeviceManager::didRefreshNotification(), nullptr, [&](const NSNotification& refresh) {
        for (const char* key : {"connected", "disconnected"}) {
          if (const Array* sources = refresh.userInfo.get<Array>(key))
            told.push_back(key + std::to_string(sources->size()));
        }
        // It asks from inside, too.
        (void)CapturableDeviceManager::allDevices();
      });
  unplug("video2");
  EXPECT_TRUE(countIs(1));
  EXPECT_FALSE(first[0]->isAvailable());
  NSError error;
  EXPECT_FALSE(first[0]->start(delegate_, &error));
  EXPECT_EQ(error.description(), "The camera is not connected: plug it in");
  plug("video2");
  EXPECT_TRUE(countIs(2));
  const Cameras second = CapturableDeviceManager::cameraDevices();
  EXPECT_EQ(second[0], first[1]) << "the one that stayed";
  EXPECT_EQ(second[1]->uniqueID(), first[0]->uniqueID());
  EXPECT_NE(second[1], first[0]);
  EXPECT_THAT(told, ElementsAre("disconnected1", "connected1")) << "however often the system says it";
  NotificationCenter::defaultCenter().removeObserver(token);
}

TEST_F(CameraDevices, streamInAnyFormatTheColoursThatTheySee) {
  for (const char* format : {"YUYV", "UYVY", "YVYU", "VYUY", "NV12", "NV21", "YU12", "YV12", "422P", "RGB3",
                             "BGR3", "BGR4", "MJPG"}) {
    SCOPED_TRACE(format);
    begin(std::string(format) + ":320x240@60", {"--padding", format == std::string("YU12") ? "32" : "0"});
    ASSERT_TRUE(camera_->start(delegate_));
    EXPECT_TRUE(moreComes());
    expectBars(320, 240, 2);
    camera_->stop();
    camera_.reset();
    DeviceStage::TearDown();
    unplug();
  }
}

TEST_F(CameraDevices, lendTheirOwnMemoryAndDoNotStallWhenItIsHeld) {
  begin("NV12:320x240@60");
  std::vector<CVPixelBufferRef> held;
  delegate_->react = [&](const std::string& event, RecordingDelegate::Capturables) {
    if (event == "frame" && held.size() < 20) held.push_back(delegate_->lastFrame());
  };
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(moreComes(20));
  camera_->stop();
  expectBars(320, 240, 0);
  // Frames outlive the stream, and the camera.
  unplug();
  for (const auto& frame : held) {
    EXPECT_EQ(std::to_integer<int>(frame->planes()[0].baseAddress[0]), qeltest::kColourBars[0].y);
  }
}

TEST_F(CameraDevices, thatAreUnpluggedEndTheirSessionsAndLeaveTheList) {
  begin();
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(moreComes());
  unplug();
  EXPECT_TRUE(comes("didStop The camera was unplugged"));
  EXPECT_TRUE(countIs(0));
  EXPECT_TRUE(serveUntil([&] { return count(" session stopping") == 1; }));
  EXPECT_THAT(delegate_->events(), testing::Not(testing::Contains(testing::StartsWith("didFail"))));
}

TEST_F(CameraDevices, thatWereUnpluggedNeverStreamAnotherOneInTheirPlace) {
  begin();
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(moreComes());
  unplug();
  EXPECT_TRUE(comes("didStop The camera was unplugged"));
  EXPECT_TRUE(countIs(0));
  plug("video0", "YUYV:160x120@30", {"--card", "Other Cam"});
  EXPECT_TRUE(countIs(1));
  EXPECT_FALSE(camera_->isAvailable());
  const std::size_t before = delegate_->events().size();
  if (camera_->start(delegate_)) {
    EXPECT_TRUE(serveUntil([&] { return delegate_->events().size() == before + 2; }));
    EXPECT_THAT(delegate_->events().back(),
                testing::StartsWith("didFailToStart The camera is not connected"));
  }
  EXPECT_EQ(delegate_->lastFrame()->width(), 640U) << "none of the other one's";
  camera_->stop();

  // Nor one that nobody has told of yet.
  camera_ = CapturableDeviceManager::cameraDevices()[0];
  emulated_["video0"]->command("vanish");
  emulated_["video0"] = nullptr;
  emulated_["video0"] =
      EmulatedCamera::start({.formats = "YUYV:320x240@30",
                             .arguments = {"--card", "Third Cam"},
                             .path = "/dev/shm/qel_" + std::to_string(::getpid()) + "video0"});
  const auto told = [&] { return delegate_->events().size(); };
  const std::size_t until = told() + 2;
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(serveUntil([&] { return told() == until; }));
  EXPECT_THAT(delegate_->events().back(), testing::StartsWith("didFailToStart The camera is not connected"));
  EXPECT_EQ(delegate_->lastFrame()->width(), 640U);
  camera_->stop();
}

TEST_F(CameraDevices, sayWhyTheyDoNotStart) {
  EmulatedCamera& emulated = begin();
  emulated.command("busy on");
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(comes("didFailToStart The camera is in use by "));
  camera_->stop();
  emulated.command("busy off");
  const auto second = std::make_shared<RecordingDelegate>();
  delegate_ = second;
  ASSERT_TRUE(camera_->start(delegate_)) << "it may be tried again";
  EXPECT_TRUE(moreComes());
  camera_->stop();
}

TEST_F(CameraDevices, withoutAUsefulFormatAreListedAndSayWhatTheyHave) {
  begin("H264:640x480@30");
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(
      comes("didFailToStart The camera offers none of the picture formats that can be used here, only H264"));
  camera_->stop();
}

TEST_F(CameraDevices, thatFreezeAreInterruptedUntilTheyGoOn) {
  EmulatedCamera& emulated = begin();
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(moreComes());
  emulated.command("freeze on");
  EXPECT_TRUE(comes("begin 1"));
  emulated.command("freeze off");
  EXPECT_TRUE(comes("end"));
  EXPECT_TRUE(moreComes());
  camera_->stop();
  EXPECT_EQ(delegate_->events().back(), "didStop none");
}

TEST_F(CameraDevices, countWhatIsDamagedAndGoOn) {
  for (const char* format : {"YUYV:320x240@60", "MJPG:320x240@60", "NV12:320x240@60"}) {
    EmulatedCamera& emulated = begin(format);
    ASSERT_TRUE(camera_->start(delegate_));
    EXPECT_TRUE(moreComes());
    for (const char* fault : {"damaged 2", "short 2"}) emulated.command(fault);
    EXPECT_TRUE(serveUntil([&] { return count(" no image buffer in capture output") >= 2; })) << format;
    EXPECT_TRUE(moreComes());
    camera_->stop();
    camera_.reset();
    DeviceStage::TearDown();
    unplug();
  }
}

TEST_F(CameraDevices, breakDownWithAReason) {
  EmulatedCamera& emulated = begin();
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(moreComes());
  emulated.command("fault EIO");
  EXPECT_TRUE(comes("didStop The camera does not work (Input/output error)"));
  delegate_ = std::make_shared<RecordingDelegate>();
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(moreComes()) << "a new start is a new attempt";
  camera_->stop();
}

TEST_F(CameraDevices, startAndStopAsOftenAsOneLikes) {
  EmulatedCamera& emulated = begin("YUYV:160x120@100");
  emulated.command("open-slow 1");
  const auto cycle = [&](int i) {
    ASSERT_TRUE(camera_->start(delegate_));
    EXPECT_TRUE(i % 4 != 0 || moreComes(1));
    camera_->stop();
  };
  for (int i = 0; i < 20; ++i) cycle(i);
  EXPECT_TRUE(serveUntil([&] { return count(" session init") == count(" session deinit"); }));
  UdevTestbed::tidy();
  const std::size_t descriptors = entriesOf("/proc/self/fd"), threads = entriesOf("/proc/self/task");
  for (int i = 0; i < 200; ++i) cycle(i);
  EXPECT_TRUE(serveUntil([&] { return count(" session init") == count(" session deinit"); }));
  UdevTestbed::tidy();
  // The library keeps some threads for later, more of them on a busy machine.
  EXPECT_LE(entriesOf("/proc/self/fd"), descriptors + 20);
  EXPECT_LE(entriesOf("/proc/self/task"), threads + 50);
  EXPECT_THAT(delegate_->events(), testing::Not(testing::Contains(testing::StartsWith("didFail"))))
      << "one stream waits until the one before has closed the camera";
}

TEST_F(CameraDevices, mayBeStoppedAndDroppedWhileTheyAreBeingOpened) {
  EmulatedCamera& emulated = begin();
  emulated.command("open-slow 300");
  ASSERT_TRUE(camera_->start(delegate_));
  EXPECT_TRUE(comes("willStart"));
  camera_->stop();
  const auto second = std::make_shared<RecordingDelegate>();
  ASSERT_TRUE(camera_->start(second));
  EXPECT_TRUE(serveUntil([&] { return !second->timestamps().empty(); }));
  EXPECT_THAT(delegate_->events(), ElementsAre("willStart")) << "what came later is nobody's";
  camera_->stop();
  ASSERT_TRUE(camera_->start(second));
  EXPECT_TRUE(serveUntil([&] { return count("[Delegate] willStartRunning") == 3; }));
  udev_->unplug("video0");
  EXPECT_TRUE(countIs(0));
  camera_.reset();  // for the last time, in the midst of it
  EXPECT_TRUE(serveUntil([&] { return count(" session init") == count(" session deinit"); }));
}

TEST_F(CameraDevices, mayBeStoppedStartedAndDroppedFromInsideWhatTheyTell) {
  begin("YUYV:160x120@100");
  for (const std::string event : {"willStart", "didStart", "frame"}) {
    const auto told = std::make_shared<RecordingDelegate>();
    told->react = [&](const std::string& happened, RecordingDelegate::Capturables source) {
      if (happened != event) return;
      source->stop();
      EXPECT_TRUE(source->start(delegate_));
    };
    ASSERT_TRUE(camera_->start(told));
    EXPECT_TRUE(moreComes()) << event;
    camera_->stop();
  }
  // The manager drops its reference when the camera goes, the host when the stream says so: the last one goes
  // on the camera's own thread.
  const auto last = std::make_shared<RecordingDelegate>();
  std::atomic<bool> isOver = false;
  last->react = [&](const std::string& happened, RecordingDelegate::Capturables) {
    if (happened.starts_with("didStop The camera")) camera_.reset(), isOver = true;
  };
  ASSERT_TRUE(camera_->start(last));
  EXPECT_TRUE(serveUntil([&] { return !last->timestamps().empty(); }));
  udev_->unplug("video0");
  EXPECT_TRUE(countIs(0));
  emulated_["video0"]->command("vanish");
  EXPECT_TRUE(serveUntil([&] { return isOver.load(); }));
  EXPECT_TRUE(serveUntil([&] { return count(" deinit") >= 1; }));
}

}  // namespace
}  // namespace QelUtilVideo
