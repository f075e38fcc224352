#include "capture/RecordingDelegate.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "support/PrivateXServer.h"
#include "support/VncOutputs.h"
#include "support/WindowPainter.h"
#include "support/simulated/LogCapture.h"

#include <QelUtilVideo/CapturableDeviceManager.h>
#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/platform/MainLoop.h>

#include <gmock/gmock.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using namespace std::chrono_literals;
using testing::Each;

/// Displays of a real X server as streaming devices.
class ScreenDevices : public testing::Test {
 protected:
  void start(const PrivateXServer::Options& options = {}) {
    server_ = PrivateXServer::start(options);
    ASSERT_TRUE(server_);
    ::setenv("DISPLAY", server_->display().c_str(), 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    Root::replace(std::make_unique<Root>(makePlatform()));
    log_.emplace();
    screens_ = CapturableDeviceManager::screenDevices();
    ASSERT_FALSE(screens_.empty());
  }
  void TearDown() override {
    screens_.clear();
    if (!log_) return;
    // Sessions stop in their own time, and need the root for it.
    EXPECT_TRUE(serveUntil([&] {
      int alive = 0;
      for (const std::string& line : log_->messages()) {
        alive += line.ends_with(" session init") - line.ends_with(" session deinit");
      }
      return alive == 0;
    }));
    log_.reset();
    Root::replace(nullptr);
    Root::replace(nullptr);  // the one that was made when the last devices said that they go
  }
  static bool serveUntil(const std::function<bool()>& isSo) {
    for (const auto end = std::chrono::steady_clock::now() + 10s; !isSo();) {
      if (std::chrono::steady_clock::now() > end) return false;
      pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
      ::poll(&entry, 1, 10);
      MainLoop::main().dispatchPending();
    }
    return true;
  }
  [[nodiscard]] bool moreComes(int frames = 2) const {
    const std::size_t wanted = delegate_->timestamps().size() + static_cast<std::size_t>(frames);
    return serveUntil([&] { return delegate_->timestamps().size() >= wanted; });
  }
  [[nodiscard]] bool comes(const std::string& event) const {
    return serveUntil([&] {
      const auto events = delegate_->events();
      return std::ranges::find(events, event) != events.end();
    });
  }
  /// The luma of the last frame at a place.
  [[nodiscard]] int lumaAt(std::size_t x, std::size_t y) const {
    const auto frame = delegate_->lastFrame();
    const PixelPlane& luma = frame->planes()[0];
    return std::to_integer<int>(luma.baseAddress[y * luma.bytesPerRow + x]);
  }

  std::optional<LogCapture> log_;
  std::unique_ptr<PrivateXServer> server_;
  std::vector<std::shared_ptr<CapturableScreen>> screens_;
  std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
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
  {
    const X11Connection::Use use(*painter.connection());
    xcb_warp_pointer(use, XCB_NONE, painter.connection()->root(), 0, 0, 0, 0, 80, 30);
  }
  painter.sync();
  const auto before = delegate_->lastFrame();
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
