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

class ManagerTest : public testing::Test {
 protected:
  void arrange(std::vector<SimulatedDisplay> displays) {
    machine->displays().set(std::move(displays));
    machine->displays().notify();
  }
  static std::vector<CGDirectDisplayID> listed() {
    std::vector<CGDirectDisplayID> ids;
    for (const auto& screen : CapturableWindowManager::screens()) ids.push_back(screen->displayID());
    return ids;
  }
  /// What the notification's list under `key` names.
  static std::vector<CGDirectDisplayID> idsIn(const Dictionary& userInfo, const std::string& key) {
    std::vector<CGDirectDisplayID> ids;
    const Array* list = userInfo.get<Array>(key);
    if (!list) return ids;
    for (const Value& entry : *list) {
      const auto* object = entry.get<std::shared_ptr<NSObject>>();
      const auto screen = object ? std::dynamic_pointer_cast<CapturableScreen>(*object) : nullptr;
      ids.push_back(screen ? screen->displayID() : 0);
    }
    return ids;
  }
  [[nodiscard]] DisplayGeometry geometry() const {
    return *Root::current().get<CurrentDisplayGeometry>().get();
  }
  void observe() {
    machine->notificationCenter().addObserver(CapturableWindowManager::didRefreshNotification(), nullptr,
                                              [this](const NSNotification& posted) {
                                                EXPECT_EQ(posted.object, nullptr);
                                                userInfos.push_back(posted.userInfo);
                                                listedInObserver = listed();
                                              });
  }

  ScopedMachine machine;
  LogCapture log;
  std::vector<Dictionary> userInfos;
  std::vector<CGDirectDisplayID> listedInObserver;
};

TEST_F(ManagerTest, theNotificationsNameMakesNoInstance) {
  EXPECT_EQ(CapturableWindowManager::didRefreshNotification(),
            "QelUtilVideoWindowManagerDidRefreshNotification");
  EXPECT_THAT(machine->dispatch().queueLabels(), Not(Contains("QelUtilVideo.CapturableWindow.ManagerQueue")));
  EXPECT_TRUE(geometry().screenBounds.empty());
}

TEST_F(ManagerTest, theFirstCallListsDisplaysInOrderWithoutANotification) {
  machine->displays().set(
      {{.id = 7, .name = "Left"}, {.id = 8, .hasScreenNumber = false}, {.id = 3, .name = "Right"}});
  observe();
  EXPECT_THAT(listed(), ElementsAre(7, 3));
  EXPECT_THAT(listed(), ElementsAre(7, 3));
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[CapturableTarget:Screen:1] init (displayID=7, name=Left)",
                          "[CapturableTarget:Screen:2] init (displayID=3, name=Right)",
                          "[CapturableTarget:Screen:1] connected", "[CapturableTarget:Screen:2] connected"));
  EXPECT_THAT(userInfos, IsEmpty());
  EXPECT_THAT(machine->dispatch().queueLabels(),
              Contains("QelUtilVideo.CapturableWindow.ManagerQueue").Times(1));
}

TEST_F(ManagerTest, anAddedDisplayIsAnnouncedAlone) {
  machine->displays().set({{.id = 7}});
  observe();
  const auto before = CapturableWindowManager::screens();
  log.clear();
  arrange({{.id = 9, .name = "New"}, {.id = 7}});
  EXPECT_THAT(log.messages(), ElementsAre("[CapturableTarget:Screen:2] init (displayID=9, name=New)",
                                          "[CapturableTarget:Screen:2] connected"));
  ASSERT_EQ(userInfos.size(), 1U);
  EXPECT_EQ(userInfos[0].size(), 1U);
  EXPECT_THAT(idsIn(userInfos[0], "connected"), ElementsAre(9));
  EXPECT_THAT(listedInObserver, ElementsAre(9, 7));
  EXPECT_EQ(CapturableWindowManager::screens()[1], before[0]);
}

TEST_F(ManagerTest, exchangedDisplaysAreAnnouncedTogetherTheGoneOnesLoggedFirstAndReleased) {
  machine->displays().set({{.id = 1}, {.id = 2}, {.id = 3}});
  observe();
  EXPECT_EQ(listed().size(), 3U);
  log.clear();
  arrange({{.id = 2}, {.id = 5, .name = "New"}});
  EXPECT_THAT(log.messages(), ElementsAre("[CapturableTarget:Screen:4] init (displayID=5, name=New)",
                                          "[CapturableTarget:Screen:1] disconnected",
                                          "[CapturableTarget:Screen:3] disconnected",
                                          "[CapturableTarget:Screen:4] connected"));
  ASSERT_EQ(userInfos.size(), 1U);
  EXPECT_THAT(idsIn(userInfos[0], "disconnected"), ElementsAre(1, 3));
  EXPECT_THAT(idsIn(userInfos[0], "connected"), ElementsAre(5));
  log.clear();
  userInfos.clear();
  EXPECT_THAT(log.messages(),
              ElementsAre("[CapturableTarget:Screen:1] deinit", "[CapturableTarget:Screen:3] deinit"));

  arrange({});
  EXPECT_EQ(userInfos[0].size(), 1U);
  EXPECT_THAT(idsIn(userInfos[0], "disconnected"), ElementsAre(2, 5));
  EXPECT_EQ(geometry().primaryScreenHeight, 0);
}

TEST_F(ManagerTest, aResolutionChangeRenewsGeometryAndScreenObjectsSilently) {
  machine->displays().set({{.id = 7, .bounds = CGRectMake(0, 0, 64, 48)}});
  observe();
  const auto target = CapturableWindowManager::screens()[0];
  const auto screenBefore = target->screen();
  log.clear();
  arrange({{.id = 7, .name = "Renamed", .bounds = CGRectMake(0, 0, 100, 80)}});
  EXPECT_THAT(userInfos, IsEmpty());
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
