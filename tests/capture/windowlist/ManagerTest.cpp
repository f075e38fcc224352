#include "capture/windowlist/DisplayGeometry.h"
#include "capture/windowlist/Screen.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelUtilVideo/CapturableWindowManager.h>

#include <gmock/gmock.h>

namespace QelUtilVideo::windowlist {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

class ManagerTest : public testing::Test {
 protected:
  ManagerTest() {
    machine->notificationCenter().addObserver(
        CapturableWindowManager::didRefreshNotification(), nullptr, [this](const NSNotification& posted) {
          EXPECT_EQ(posted.object, nullptr);
          for (const auto& [key, value] : posted.userInfo.entries()) {
            announced.push_back(key);
            for (const Value& entry : *value.get<Array>()) {
              const auto object = *entry.get<std::shared_ptr<NSObject>>();
              const auto screen = std::dynamic_pointer_cast<CapturableScreen>(object);
              announced.back() += " " + std::to_string(screen->displayID());
            }
          }
          listedInObserver = listed();
        });
  }
  void arrange(std::vector<SimulatedDisplay> displays) {
    log.clear();
    announced.clear();
    machine->displays().set(std::move(displays));
    machine->displays().notify();
  }
  static std::vector<CGDirectDisplayID> listed() {
    std::vector<CGDirectDisplayID> ids;
    for (const auto& screen : CapturableWindowManager::screens()) ids.push_back(screen->displayID());
    return ids;
  }
  [[nodiscard]] DisplayGeometry geometry() const {
    return *Root::current().get<CurrentDisplayGeometry>().get();
  }

  ScopedMachine machine;
  LogCapture log;
  std::vector<std::string> announced;  ///< "connected 9", each list of each notification
  std::vector<CGDirectDisplayID> listedInObserver;
};

TEST_F(ManagerTest, theFirstCallListsDisplaysInOrderWithoutANotification) {
  const std::string queue = "QelUtilVideo.CapturableWindow.ManagerQueue";
  EXPECT_EQ(CapturableWindowManager::didRefreshNotification(),
            "QelUtilVideoWindowManagerDidRefreshNotification");
  EXPECT_THAT(machine->dispatch().queueLabels(), Not(Contains(queue)));
  machine->displays().set(
      {{.id = 7, .name = "Left"}, {.id = 8, .hasScreenNumber = false}, {.id = 3, .name = "Right"}});
  EXPECT_THAT(listed(), ElementsAre(7, 3));
  EXPECT_THAT(listed(), ElementsAre(7, 3));
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[CapturableTarget:Screen:1] init (displayID=7, name=Left)",
                          "[CapturableTarget:Screen:2] init (displayID=3, name=Right)",
                          "[CapturableTarget:Screen:1] connected", "[CapturableTarget:Screen:2] connected"));
  EXPECT_THAT(announced, IsEmpty());
  EXPECT_THAT(machine->dispatch().queueLabels(), Contains(queue).Times(1));
}

TEST_F(ManagerTest, changedDisplaysAreAnnouncedTogetherTheGoneOnesLoggedFirstAndReleased) {
  machine->displays().set({{.id = 1}, {.id = 2}, {.id = 3}});
  const auto two = CapturableWindowManager::screens()[1];
  arrange({{.id = 5, .name = "New"}, {.id = 2}});
  EXPECT_THAT(log.messages(),
              ElementsAre("[CapturableTarget:Screen:4] init (displayID=5, name=New)",
                          "[CapturableTarget:Screen:1] disconnected",
                          "[CapturableTarget:Screen:3] disconnected", "[CapturableTarget:Screen:4] connected",
                          "[CapturableTarget:Screen:1] deinit", "[CapturableTarget:Screen:3] deinit"));
  EXPECT_THAT(announced, UnorderedElementsAre("disconnected 1 3", "connected 5"));
  EXPECT_THAT(listedInObserver, ElementsAre(5, 2));
  EXPECT_EQ(CapturableWindowManager::screens()[1], two);
  arrange({{.id = 9}, {.id = 5}, {.id = 2}});
  EXPECT_THAT(announced, ElementsAre("connected 9"));
  arrange({});
  EXPECT_THAT(announced, ElementsAre("disconnected 9 5 2"));
  EXPECT_EQ(geometry().primaryScreenHeight, 0);
}

TEST_F(ManagerTest, aResolutionChangeRenewsGeometryAndScreenObjectsSilently) {
  EXPECT_TRUE(geometry().screenBounds.empty());
  machine->displays().set({{.id = 7, .bounds = CGRectMake(0, 0, 64, 48)}});
  const auto target = CapturableWindowManager::screens()[0];
  const auto screenBefore = target->screen();
  arrange({{.id = 7, .name = "Renamed", .bounds = CGRectMake(0, 0, 100, 80)}});
  EXPECT_THAT(announced, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(CapturableWindowManager::screens()[0], target);
  EXPECT_NE(target->screen(), screenBefore);
  EXPECT_EQ(target->name(), "Renamed");
  EXPECT_THAT(geometry().screenBounds, ElementsAre(CGRectMake(0, 0, 100, 80)));
  EXPECT_EQ(geometry().primaryScreenHeight, 80);
}

TEST_F(ManagerTest, desktopHoldsTheOriginAndAllDisplays) {
  machine->displays().set(
      {{.id = 1, .bounds = CGRectMake(10, 20, 64, 48)}, {.id = 2, .bounds = CGRectMake(-30, 30, 40, 100)}});
  EXPECT_EQ(listed().size(), 2U);
  EXPECT_EQ(geometry().desktopBounds, CGRectMake(-30, 0, 104, 130));
  EXPECT_EQ(geometry().primaryScreenHeight, 48);
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
