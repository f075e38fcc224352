#include "capture/windowlist/Screen.h"

#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

namespace QelUtilVideo::windowlist {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ScreenTest : public testing::Test {
 protected:
  std::shared_ptr<Screen> makeScreen(SimulatedDisplay display) {
    machine->displays().set({std::move(display)});
    return Screen::make(*machine, machine->displays().screens().at(0));
  }

  ScopedMachine machine;
  LogCapture log;
};

TEST_F(ScreenTest, aScreenWithoutADisplayIDMakesNoTargetAndTakesNoLogID) {
  EXPECT_FALSE(makeScreen({.hasScreenNumber = false}));
  EXPECT_FALSE(Screen::make(*machine, nullptr));
  EXPECT_THAT(log.lines(), IsEmpty());
  EXPECT_EQ(makeScreen({})->logName(), "[CapturableTarget:Screen:1]");
}

TEST_F(ScreenTest, identityAndNameAreThoseOfTheDisplay) {
  machine->systemVersion().set(10, 14);
  const SimulatedDisplay display{.id = 5, .name = "HDMI-1", .vendor = 1, .model = 2, .serial = 3};
  machine->displays().setServices({{display.info({{"en", std::string("Wide 27")}})}});
  auto screen = makeScreen(display);
  EXPECT_EQ(screen->name(), "Wide 27");
  EXPECT_EQ(screen->displayID(), 5U);
  EXPECT_EQ(screen->uniqueID(), "QelUtilVideo.CapturableScreen.QWS.CGDirectDisplayID.5");
  EXPECT_TRUE(screen->isScreen() && !screen->isCamera() && !screen->isWindow());
  machine->systemVersion().set(10, 15);
  EXPECT_EQ(screen->name(), "HDMI-1");
  screen->setScreen(nullptr);
  EXPECT_EQ(screen->name(), "HDMI-1");
  screen.reset();
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[CapturableTarget:Screen:1] init (displayID=5, name=Wide 27)",
                          "[CapturableTarget:Screen:1] deinit"));
}

TEST_F(ScreenTest, aDisplayWhoseImageCannotBeUsedFailsItsCaptureAndWithoutOneIsUnavailable) {
  using enum DisplayFault;
  const auto screen = makeScreen({.bounds = CGRectMake(0, 0, 8, 4), .scale = 2});
  EXPECT_TRUE(screen->isAvailable());
  EXPECT_EQ(screen->snapshotImage()->size(), (CGSize{16, 8}));
  for (const auto fault : {noBytes, lostBytes, shortBytes, noImage}) {
    machine->displays().change(1, [&](SimulatedDisplay& display) { display.fault = fault; });
    const auto result = screen->capture();
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error(), (NSError{"QelUtilVideo.windowlist.Error", 0, "failedToCapture"}));
  }
  EXPECT_FALSE(screen->isAvailable());
  EXPECT_EQ(screen->snapshotImage(), nullptr);
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
