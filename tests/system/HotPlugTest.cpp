#include "capture/windowlist/DisplayGeometry.h"
#include "platform/Platform.h"
#include "platform/Root.h"
#include "support/PrivateXServer.h"
#include "support/VncOutputs.h"
#include "support/simulated/LogCapture.h"

#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindowManager.h>
#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/MediaClock.h>
#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

/// Displays of an X server whose outputs really come and go, seen through the public interface.
class HotPlug : public testing::Test {
 protected:
  using Screens = std::vector<std::shared_ptr<CapturableScreen>>;

  void SetUp() override {
    if (!PrivateXServer::isInstalled(PrivateXServer::Program::tigervnc)) {
      GTEST_SKIP() << "Xtigervnc is not installed, and this test starts one";
    }
    const std::string socket = testing::TempDir() + "qel_vnc_" + std::to_string(::getpid());
    server_ = PrivateXServer::start(
        {.program = PrivateXServer::Program::tigervnc, .width = 800, .height = 600, .socket = socket});
    ASSERT_TRUE(server_);
    outputs_ = qeltest::VncOutputs::open(socket);
    ASSERT_TRUE(outputs_);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the library has no threads yet
    ::setenv("DISPLAY", server_->display().c_str(), 1);
    Root::replace(std::make_unique<Root>(makePlatform()));
    log_.emplace();
    NotificationCenter::defaultCenter().addObserver(
        CapturableWindowManager::didRefreshNotification(), nullptr,
        [this](const NSNotification& notification) { notifications_.push_back(notification); });
  }
  void TearDown() override {
    if (!log_) return;
    log_.reset();
    Root::replace(nullptr);
    Root::replace(nullptr);  // the one that was made when the last targets said that they go
  }

  /// Turns the main loop until it holds, and then for as long as one change may take to be reported.
  void settle(const std::function<bool()>& holds) {
    double end = CACurrentMediaTime() + 10;
    bool held = false;
    while (CACurrentMediaTime() < end) {
      pollfd entry{MainLoop::main().fileDescriptor(), POLLIN, 0};
      ::poll(&entry, 1, 20);
      MainLoop::main().dispatchPending();
      if (held || !holds()) continue;
      held = true;
      end = CACurrentMediaTime() + 0.6;
    }
    EXPECT_TRUE(held);
  }
  void xrandr(const std::string& arguments) {
    const std::string command = "xrandr -d " + server_->display() + " " + arguments + " 2>/dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
  }
  /// What was posted since the last call: (connected, disconnected), each as names.
  std::vector<std::pair<std::string, std::string>> takeNotifications() {
    std::vector<std::pair<std::string, std::string>> taken;
    for (const auto& notification : std::exchange(notifications_, {})) {
      taken.emplace_back(names(notification, "connected"), names(notification, "disconnected"));
    }
    return taken;
  }
  static std::string names(const NSNotification& notification, const char* key) {
    const auto* list = notification.userInfo.get<Array>(key);
    if (!list) return "";
    EXPECT_FALSE(list->empty());
    std::string text;
    for (const Value& value : *list) {
      const auto screen =
          std::dynamic_pointer_cast<CapturableScreen>(*value.get<std::shared_ptr<NSObject>>());
      text += screen->screen()->localizedName() + " ";
    }
    return text;
  }
  static Screens screens() { return CapturableWindowManager::screens(); }
  static windowlist::DisplayGeometry geometry() {
    return *Root::current().get<windowlist::CurrentDisplayGeometry>().get();
  }

  std::unique_ptr<PrivateXServer> server_;
  std::unique_ptr<qeltest::VncOutputs> outputs_;
  std::optional<LogCapture> log_;
  std::vector<NSNotification> notifications_;
};

TEST_F(HotPlug, displaysThatComeAndGoAreToldOnceAndKeepTheirObjectsMeanwhile) {
  const auto first = screens().at(0);
  EXPECT_EQ(first->screen()->localizedName(), "VNC-0");
  EXPECT_EQ(geometry().primaryScreenHeight, 600);

  ASSERT_TRUE(outputs_->arrange({{0, 0, 800, 600}, {800, 0, 640, 480}}));
  settle([] { return screens().size() == 2; });
  EXPECT_THAT(takeNotifications(), ElementsAre(std::pair("VNC-1 ", "")));
  EXPECT_EQ(screens().at(0), first);
  const auto second = screens().at(1);
  EXPECT_EQ(geometry().screenBounds, (std::vector{CGRectMake(0, 0, 800, 600), CGRectMake(800, 0, 640, 480)}));
  EXPECT_EQ(geometry().desktopBounds, CGRectMake(0, 0, 1440, 600));

  xrandr("--output VNC-1 --off");
  settle([] { return screens().size() == 1; });
  EXPECT_THAT(takeNotifications(), ElementsAre(std::pair("", "VNC-1 ")));
  xrandr("--output VNC-1 --mode 640x480 --right-of VNC-0");
  settle([] { return screens().size() == 2; });
  EXPECT_THAT(takeNotifications(), ElementsAre(std::pair("VNC-1 ", "")));
  EXPECT_NE(screens().at(1), second);
  EXPECT_EQ(screens().at(1)->displayID(), second->displayID());
  EXPECT_EQ(screens().at(1)->uniqueID(), second->uniqueID());

  server_->kill();
  settle([] { return screens().empty(); });
  EXPECT_THAT(takeNotifications(), ElementsAre(std::pair("", "VNC-0 VNC-1 ")));
  EXPECT_EQ(geometry().primaryScreenHeight, 0);
  EXPECT_EQ(geometry().desktopBounds, CGRectZero);

  std::vector<std::string> lines;
  for (const auto& line : log_->messages(LogLevel::info)) {
    if (line.ends_with("connected")) lines.push_back(line.substr(line.rfind(':')));
  }
  EXPECT_THAT(lines, ElementsAre(":1] connected", ":2] connected", ":2] disconnected", ":3] connected",
                                 ":1] disconnected", ":3] disconnected"));
}

TEST_F(HotPlug, displaysThatOnlyChangeAreNotToldButKnowTheirPlace) {
  ASSERT_TRUE(outputs_->arrange({{0, 0, 800, 600}, {800, 0, 640, 480}}));
  settle([] { return screens().size() == 2; });
  takeNotifications();
  const Screens before = screens();
  const auto screenBefore = before[0]->screen();

  // The server unplugs an output and plugs it in again to resize it.
  ASSERT_TRUE(outputs_->arrange({{0, 0, 1024, 768}, {1024, 0, 640, 480}}));
  settle([] { return geometry().primaryScreenHeight == 768; });
  EXPECT_NE(before[0]->screen(), screenBefore);
  EXPECT_EQ(geometry().screenBounds[1], CGRectMake(1024, 0, 640, 480));

  xrandr("--output VNC-1 --pos 0x0 --output VNC-0 --pos 640x0");
  settle([] { return geometry().screenBounds[0].origin.x == 640; });
  EXPECT_EQ(geometry().desktopBounds, CGRectMake(0, 0, 1664, 768));

  xrandr("--output VNC-1 --primary");
  settle([] { return geometry().primaryScreenHeight == 480; });
  EXPECT_EQ(screens(), (Screens{before[1], before[0]}));
  EXPECT_EQ(before[0]->screen()->frame().origin.y, 480 - 768);

  xrandr("--output VNC-0 --mode 640x480 --same-as VNC-1");  // mirrored
  settle([] { return geometry().screenBounds[1] == CGRectMake(0, 0, 640, 480); });
  EXPECT_EQ(geometry().desktopBounds, CGRectMake(0, 0, 640, 480));
  EXPECT_EQ(screens(), (Screens{before[1], before[0]}));
  EXPECT_THAT(takeNotifications(), IsEmpty());
}

}  // namespace
}  // namespace QelUtilVideo
