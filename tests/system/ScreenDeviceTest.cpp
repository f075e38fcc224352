#include "support/DeviceStage.h"
#include "support/PrivateXServer.h"
#include "support/VncOutputs.h"
#include "support/WindowPainter.h"

#include <QelUtilVideo/CapturableDeviceManager.h>
#include <QelUtilVideo/CapturableScreen.h>

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using testing::Each;

/// Displays of a real X server as streaming devices.
class ScreenDevices : public DeviceStage {
 protected:
  void start(const PrivateXServer::Options& options = {}) {
    server_ = PrivateXServer::start(options);
    ASSERT_TRUE(server_);
    ::setenv("DISPLAY", server_->display().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    begin();
    screens_ = CapturableDeviceManager::screenDevices();
    ASSERT_FALSE(screens_.empty());
  }
  void TearDown() override {
    screens_.clear();
    DeviceStage::TearDown();
  }
  [[nodiscard]] int lumaAt(std::size_t x, std::size_t y) const { return byteAt(0, x, y); }

  std::unique_ptr<PrivateXServer> server_;
  std::vector<std::shared_ptr<CapturableScreen>> screens_;
};

TEST_F(ScreenDevices, streamWhatTheDisplayShows) {
  QEL_REQUIRE_X_SERVER();
  start({.width = 101, .height = 75});
  const qeltest::WindowPainter painter(server_->display());
  {
    const X11Connection::Use use(*painter.connection());
    xcb_warp_pointer(use, XCB_NONE, painter.connection()->root(), 0, 0, 0, 0, 100, 74);
  }
  painter.sync();
  EXPECT_EQ(CapturableDeviceManager::device(screens_[0]->uniqueID()), screens_[0]);
  ASSERT_TRUE(screens_[0]->start(delegate_));
  ASSERT_TRUE(moreComes());
  const auto still = delegate_->lastFrame();
  EXPECT_EQ(CVPixelBufferGetPixelFormatType(*still), kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange);
  EXPECT_EQ(CVPixelBufferGetWidth(*still), 101U);
  EXPECT_EQ(CVPixelBufferGetHeight(*still), 75U);
  EXPECT_EQ(lumaAt(10, 10), 16);
  ASSERT_TRUE(moreComes());
  EXPECT_EQ(delegate_->lastFrame(), still) << "nothing has changed";

  const auto window = painter.show({20, 10, 40, 40}, 5);
  const auto expected = window.at(24, 14);
  const int luma =
      static_cast<int>(16.5 + (65.738 * expected[2] + 129.057 * expected[1] + 25.064 * expected[0]) / 256);
  EXPECT_TRUE(serveUntil([&] { return std::abs(lumaAt(24, 14) - luma) <= 2; }));
  const auto before = delegate_->lastFrame();
  {
    const X11Connection::Use use(*painter.connection());
    xcb_warp_pointer(use, XCB_NONE, painter.connection()->root(), 0, 0, 0, 0, 80, 30);
  }
  painter.sync();
  EXPECT_TRUE(serveUntil([&] { return delegate_->lastFrame() != before; })) << "the pointer has moved";

  screens_[0]->stop();
  const auto times = delegate_->timestamps();
  EXPECT_TRUE(std::ranges::is_sorted(times));
  EXPECT_EQ(delegate_->events().back(), "didStop none");
  EXPECT_EQ(delegate_->events()[0], "willStart");
  EXPECT_EQ(delegate_->events()[1], "didStart");
}

TEST_F(ScreenDevices, startAndStopAsOftenAsOneLikesWhereverOneIs) {
  QEL_REQUIRE_X_SERVER();
  start();
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(screens_[0]->start(delegate_));
    EXPECT_TRUE(i % 3 == 0 || moreComes(1));
    screens_[0]->stop();
  }
  for (const std::string event : {"willStart", "didStart", "frame"}) {
    const auto told = std::make_shared<RecordingDelegate>();
    told->react = [&](const std::string& happened, RecordingDelegate::Capturables source) {
      if (happened != event) return;
      source->stop();
      EXPECT_TRUE(source->start(delegate_));
    };
    ASSERT_TRUE(screens_[0]->start(told));
    EXPECT_TRUE(moreComes());
    screens_[0]->stop();
  }
  // The last reference goes on the queue that delivers.
  const auto last = std::make_shared<RecordingDelegate>();
  std::atomic<bool> isGone = false;
  auto device = screens_[0];
  last->react = [&](const std::string& happened, RecordingDelegate::Capturables source) {
    if (happened == "frame" && !isGone.exchange(true)) source->stop();
  };
  ASSERT_TRUE(device->start(last));
  EXPECT_TRUE(serveUntil([&] { return isGone.load(); }));
}

TEST_F(ScreenDevices, endWithAnErrorWhenTheServerDies) {
  QEL_REQUIRE_X_SERVER();
  start();
  ASSERT_TRUE(screens_[0]->start(delegate_));
  ASSERT_TRUE(moreComes());
  server_->kill();
  EXPECT_TRUE(comes("didStop The connection to the X server is lost"));
  NSError error;
  EXPECT_TRUE(serveUntil([&] { return !screens_[0]->isAvailable(); }));
  screens_[0]->stop();
  EXPECT_FALSE(screens_[0]->start(delegate_, &error));
  EXPECT_EQ(error.description(), "failedToCreateInput");
}

TEST_F(ScreenDevices, goOnInANewSizeAndEndWhenTheyAreUnplugged) {
  if (!PrivateXServer::isInstalled(PrivateXServer::Program::tigervnc)) {
    GTEST_SKIP() << "Xtigervnc is not installed, and this test starts one";
  }
  const std::string socket = testing::TempDir() + "qel_devices_" + std::to_string(::getpid());
  start({.program = PrivateXServer::Program::tigervnc, .width = 400, .height = 300, .socket = socket});
  const auto outputs = qeltest::VncOutputs::open(socket);
  ASSERT_TRUE(outputs && outputs->arrange({{0, 0, 400, 300}, {400, 0, 320, 240}}));
  ASSERT_TRUE(serveUntil([&] { return CapturableDeviceManager::screenDevices().size() == 2; }));
  screens_ = CapturableDeviceManager::screenDevices();
  ASSERT_TRUE(screens_[1]->start(delegate_));
  const auto isWide = [&](std::size_t width) {
    return serveUntil([&] {
      const auto frame = delegate_->lastFrame();
      return frame && CVPixelBufferGetWidth(*frame) == width;
    });
  };
  EXPECT_TRUE(isWide(320));
  ASSERT_TRUE(outputs->arrange({{0, 0, 400, 300}, {400, 0, 200, 150}}));
  EXPECT_TRUE(isWide(200));
  ASSERT_TRUE(outputs->arrange({{0, 0, 400, 300}}));
  EXPECT_TRUE(comes("didStop The display is not connected any more"));
  EXPECT_TRUE(serveUntil([&] { return CapturableDeviceManager::screenDevices().size() == 1; }));
}

}  // namespace
}  // namespace QelUtilVideo
