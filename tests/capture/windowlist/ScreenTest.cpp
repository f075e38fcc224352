#include "capture/windowlist/Screen.h"

#include "capture/RecordingDelegate.h"
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
  std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
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
  EXPECT_FALSE(screen->isCamera());
  EXPECT_TRUE(screen->isScreen());
  EXPECT_FALSE(screen->isWindow());
  machine->systemVersion().set(10, 15);
  EXPECT_EQ(screen->name(), "HDMI-1");
  screen->setScreen(nullptr);
  EXPECT_EQ(screen->name(), "HDMI-1");
  screen.reset();
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[CapturableTarget:Screen:1] init (displayID=5, name=Wide 27)",
                          "[CapturableTarget:Screen:1] deinit"));
}

TEST_F(ScreenTest, availabilityAndSnapshotAskForTheDisplaysImage) {
  const auto screen = makeScreen({.bounds = CGRectMake(0, 0, 8, 4), .scale = 2});
  EXPECT_TRUE(screen->isAvailable());
  EXPECT_EQ(screen->snapshotImage()->size(), (CGSize{16, 8}));
  machine->displays().change(1, [](SimulatedDisplay& display) { display.fault = DisplayFault::noImage; });
  EXPECT_FALSE(screen->isAvailable());
  EXPECT_EQ(screen->snapshotImage(), nullptr);
}

TEST_F(ScreenTest, aCapturedFrameShowsTheDisplayWithTheCursorOnIt) {
  const auto screen =
      makeScreen({.bounds = CGRectMake(100, 0, 8, 4),
                  .paint = [](std::size_t x, std::size_t) { return x < 4 ? 0xff112233U : 0xff445566U; },
                  .paddingPerRow = 12});
  const auto picture = makeImage(1, 1, 4, reinterpret_cast<const std::byte*>("\x01\x02\x03\xff"));
  machine->cursor().setCursor(NSCursor{std::make_shared<NSImage>(picture, CGSize{}), {}});
  machine->cursor().setLocation(CGPoint{106, 1});
  screen->start(delegate, nullptr);
  machine->advance(0);
  const auto frame = delegate->lastFrame();
  ASSERT_TRUE(frame);
  const auto blueAt = [&](std::size_t x, std::size_t y) {
    return std::to_integer<int>(frame->planes()[0].baseAddress[y * 44 + x * 4]);
  };
  EXPECT_EQ(blueAt(0, 0), 0x33);
  EXPECT_EQ(blueAt(7, 3), 0x66);
  EXPECT_EQ(blueAt(6, 1), 0x01);
  EXPECT_EQ(frame->planes()[0].baseAddress, machine->displays().lastImageBytes()->data());
}

TEST_F(ScreenTest, aDisplayWhoseImageCannotBeUsedFailsItsCapture) {
  using enum DisplayFault;
  const auto screen = makeScreen({});
  for (const auto fault : {noImage, noBytes, lostBytes, shortBytes}) {
    machine->displays().change(1, [&](SimulatedDisplay& display) { display.fault = fault; });
    const auto result = screen->capture();
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error(), (NSError{"QelUtilVideo.windowlist.Error", 0, "failedToCapture"}));
  }
}

TEST_F(ScreenTest, destructionEndsTheCaptureBeforeItIsLogged) {
  auto screen = makeScreen({});
  NSError untouched{"mine", 1, "mine"};
  EXPECT_TRUE(screen->start(delegate, &untouched));
  EXPECT_EQ(untouched.domain, "mine");
  log.clear();
  screen.reset();
  EXPECT_THAT(log.messages(),
              ElementsAre("[CapturableTarget:Screen:1] deinit",
                          "[CapturableTarget:Screen:1] sample info: duration=0sec, captured=0",
                          "[CapturableTarget:Screen:1] session deinit"));
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
