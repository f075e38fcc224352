#include "capture/windowlist/CaptureStrategies.h"

#include "capture/windowlist/DisplayGeometry.h"
#include "capture/windowlist/WindowStage.h"

#include <cstring>

namespace QelUtilVideo::windowlist {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int32_t kOwner = 100;
constexpr std::int32_t kStranger = 200;

class StrategiesTest : public WindowStage {
 protected:
  StrategiesTest() { static_cast<void>(CapturableWindowManager::screens()); }

  [[nodiscard]] WindowInfo describe(CGWindowID number) const {
    return *WindowInfo::of(server().CGWindowListCreateDescriptionFromArray({{number}}).front());
  }
  /// What capturing it by this function came to: "frame 3", "window 3", "gone".
  static std::string run(const CaptureFunction& function) {
    const CaptureResult result = function();
    if (!result.description) return result.pixelBuffer || result.windowID ? "nonsense" : "gone";
    EXPECT_EQ(*result.description->get<std::uint32_t>(kCGWindowNumber), result.windowID);
    return (result.pixelBuffer ? "frame " : "window ") + std::to_string(result.windowID);
  }
  /// The windows in the picture when `target`, which is the last of the list, is captured.
  std::vector<CGWindowID> windowsIn(std::vector<ListedWindow> list) {
    const CGWindowID target = list.back().id;
    server().set(std::move(list));
    const auto function = chooseCaptureFunction(Root::current(), describe(target));
    static_cast<void>(server().takeRequests());
    EXPECT_EQ(run(function), "frame " + std::to_string(target));
    const auto requests = server().takeRequests();
    EXPECT_EQ(requests.lists, 1);
    EXPECT_EQ(requests.images, 1);
    EXPECT_EQ(requests.imageOptions, kCGWindowImageBestResolution);
    return requests.windows;
  }
  CGRect rectOf(const CGRect& bounds) {
    server().set({{.id = 1, .bounds = bounds}});
    const auto function = chooseCaptureFunction(Root::current(), describe(1));
    EXPECT_EQ(run(function), "frame 1");
    return server().takeRequests().rect;
  }
};

// ── The composite ─────────────────────────────────────────────────────────────────────────────────

class CompositeTest : public StrategiesTest {};

TEST_F(CompositeTest, hasTheRaisedAndUnnamedWindowsOfTheOwnerUpToItsNextNamedOne) {
  EXPECT_THAT(windowsIn({{.id = 9, .name = "", .layer = 101},
                         {.id = 8, .name = "Next document"},
                         {.id = 7, .owner = kStranger, .name = "", .layer = 101},
                         {.id = 6, .name = "", .layer = 199},
                         {.id = 5, .name = "Menu", .layer = 200},
                         {.id = 4, .name = "Dialog", .layer = 8},
                         {.id = 3, .name = ""},
                         {.id = 2, .owner = kStranger, .name = "Between"},
                         {.id = 1}}),
              ElementsAre(3, 4, 6, 1));
  // Without a layer, or with one of another type, a named window ends it, and an unnamed one is in it.
  EXPECT_THAT(windowsIn({{.id = 4, .layer = 101}, {.id = 3, .missing = {kCGWindowLayer}}, {.id = 1}}),
              ElementsAre(1));
  EXPECT_THAT(windowsIn({{.id = 3, .layer = 300, .missing = {kCGWindowLayer, kCGWindowName}}, {.id = 1}}),
              ElementsAre(3, 1));
  EXPECT_THAT(windowsIn({{.id = 3, .layer = -5}, {.id = 1}}), ElementsAre(1));
  // Windows below it do not matter, and a missing owner is owner 0.
  EXPECT_THAT(windowsIn({{.id = 3, .owner = 0, .layer = 8}, {.id = 1, .missing = {kCGWindowOwnerPID}}}),
              ElementsAre(3, 1));
}

TEST_F(CompositeTest, hasTheRegisteredOverlayWhoeverOwnsIt) {
  const std::vector<ListedWindow> windows{{.id = 5, .owner = kStranger, .name = "", .layer = 300},
                                          {.id = 4, .owner = kStranger, .name = "", .layer = 299},
                                          {.id = 3, .owner = kOwner, .name = "", .layer = 300},
                                          {.id = 1, .owner = kOwner}};
  EXPECT_THAT(windowsIn(windows), ElementsAre(1));
  CapturableWindowManager::setOverlay(300, kStranger);
  EXPECT_THAT(windowsIn(windows), ElementsAre(5, 1));
  CapturableWindowManager::setOverlay(299, kStranger);
  EXPECT_THAT(windowsIn(windows), ElementsAre(4, 1));
  CapturableWindowManager::setOverlay(std::int64_t{1} << 32 | 299, kStranger);
  EXPECT_THAT(windowsIn(windows), ElementsAre(1)) << "no window has such a level";
  CapturableWindowManager::setOverlay(300, kStranger);
  CapturableWindowManager::clearOverlay();
  EXPECT_THAT(windowsIn(windows), ElementsAre(1));

  // A named overlay at layer 0 ends the scan like any other; a description without layer has the lowest one.
  CapturableWindowManager::setOverlay(0, kStranger);
  EXPECT_THAT(windowsIn({{.id = 3, .layer = 8}, {.id = 2, .owner = kStranger}, {.id = 1}}), ElementsAre(1));
  CapturableWindowManager::setOverlay(std::numeric_limits<std::int32_t>::min(), kStranger);
  EXPECT_THAT(windowsIn({{.id = 2, .owner = kStranger, .name = "", .missing = {kCGWindowLayer}}, {.id = 1}}),
              ElementsAre(2, 1));
}

TEST_F(CompositeTest, showsWhatLiesOnTheDesktopInWholePointsAndAtLeastEightyOfThem) {
  EXPECT_EQ(rectOf(CGRectMake(100, 50, 300, 200)), CGRectMake(100, 50, 300, 200));
  EXPECT_EQ(rectOf(CGRectMake(100.25, 50.5, 300, 200)), CGRectMake(100, 50, 301, 201));
  EXPECT_EQ(rectOf(CGRectMake(100, 50, 50, 300)), CGRectMake(85, 50, 80, 300));
  EXPECT_EQ(rectOf(CGRectMake(101, 50, 79, 79)), CGRectMake(100, 49, 81, 81)) << "rounded outward";
  EXPECT_EQ(rectOf(CGRectMake(-100, 700, 300, 300)), CGRectMake(0, 700, 200, 100));
  EXPECT_EQ(rectOf(CGRectMake(970, -20, 300, 300)), CGRectMake(945, 0, 80, 280));
  EXPECT_TRUE(CGRectIsNull(rectOf(CGRectMake(2000, 0, 300, 300)))) << "all of it";
}

TEST_F(CompositeTest, withoutAnImageItsWindowIsGoneAndOffScreenItIsOnlyDescribed) {
  server().set({{.id = 2, .name = "", .layer = 101}, {.id = 1}});
  const auto function = chooseCaptureFunction(Root::current(), describe(1));
  for (const WindowPicture fault : {WindowPicture::none, WindowPicture::lostBytes}) {
    server().change(1, [&](ListedWindow& window) { window.picture = fault; });
    EXPECT_EQ(run(function), "gone");
  }
  server().change(1, [](ListedWindow& window) { window.isOnScreen = false; });
  EXPECT_EQ(run(function), "window 1") << "the list ends with the desktop, which has another owner";
  server().set({{.id = 1, .owner = kStranger}});
  EXPECT_EQ(run(function), "window 1") << "the number is another window's now";
  server().set({});
  EXPECT_EQ(run(function), "gone");
  server().setReachable(false);
  EXPECT_EQ(run(function), "gone");
}

// ── Presentations ─────────────────────────────────────────────────────────────────────────────────

class PresentationStrategiesTest : public StrategiesTest {
 protected:
  static constexpr CGRect kLeft = CGRectMake(0, 0, 1000, 800);
  static constexpr CGRect kRight = CGRectMake(1000, 0, 640, 480);

  PresentationStrategiesTest() {
    machine->displays().set({{.id = 7, .bounds = kLeft}, {.id = 8, .bounds = kRight}});
    machine->displays().notify();
  }
  /// Captures window 1 by the strategy of the application, among these windows.
  std::string captured(const char* application, std::vector<ListedWindow> windows) {
    server().setApplication(kOwner, application);
    server().set({{.id = 1}});
    const auto function = chooseCaptureFunction(Root::current(), describe(1));
    server().set(std::move(windows));
    return run(function);
  }
  static constexpr const char* kFirst = "com.apple.iWork.Keynote";
  static constexpr const char* kSecond = "com.microsoft.Powerpoint";
};

TEST_F(PresentationStrategiesTest, aFullScreenWindowIsOpaqueOnScreenAndExactlyOneDisplay) {
  const auto isFull = [](const ListedWindow& window) {
    SimulatedWindowServer one;
    one.set({window});
    return isFullScreenWindow(*WindowInfo::of(one.CGWindowListCreateDescriptionFromArray({{1}}).front()),
                              Root::current().get<CurrentDisplayGeometry>().get()->screenBounds);
  };
  EXPECT_TRUE(isFull({.bounds = kLeft}) && isFull({.bounds = kRight}));
  EXPECT_FALSE(isFull({.bounds = CGRectMake(0, 0, 1640, 800)}) ||
               isFull({.bounds = CGRectMake(0, 0, 1000, 799)}) || isFull({.alpha = 0.5, .bounds = kLeft}) ||
               isFull({.bounds = kLeft, .isOnScreen = false}));
  for (const char* key : {kCGWindowAlpha, kCGWindowIsOnscreen, kCGWindowBounds}) {
    EXPECT_FALSE(isFull({.bounds = kLeft, .missing = {key}})) << key;
  }
}

TEST_F(PresentationStrategiesTest, theFirstLooksForSlidesBeforeItTakesTheWindow) {
  const ListedWindow shared{.id = 1};
  const ListedWindow slides{.id = 3, .name = "", .layer = 1, .bounds = kRight};
  EXPECT_EQ(captured(kFirst, {slides, shared}), "frame 3");
  EXPECT_EQ(captured(kFirst, {shared, slides}), "frame 3") << "behind it, too";
  EXPECT_EQ(captured(kFirst, {{.id = 4, .layer = 5, .bounds = kLeft}, slides, shared}), "frame 4")
      << "the front-most";
  EXPECT_EQ(captured(kFirst, {{.id = 4, .layer = 0, .bounds = kLeft}, shared}), "frame 1") << "too low";
  EXPECT_EQ(captured(kFirst, {{.id = 4, .owner = kStranger, .layer = 1, .bounds = kLeft}, shared}),
            "frame 1");
  ListedWindow broken = slides;
  broken.picture = WindowPicture::none;
  EXPECT_EQ(captured(kFirst, {broken, {.id = 1, .bounds = CGRectMake(0, 0, 300, 300)}}), "gone")
      << "it is part of the window's own picture, too";
  broken.name = "Slides";
  broken.layer = 1;
  EXPECT_EQ(captured(kFirst, {shared, broken}), "frame 1") << "only the front-most is tried";
  EXPECT_EQ(captured(kFirst, {slides, {.id = 1, .isOnScreen = false}}), "frame 3");
  EXPECT_EQ(captured(kFirst, {{.id = 1, .isOnScreen = false}}), "window 1");
  EXPECT_EQ(captured(kFirst, {slides}), "gone") << "the shared window was closed";
}

TEST_F(PresentationStrategiesTest, theSecondLooksForSlidesWhereTheWindowGivesNothing) {
  const ListedWindow minimised{.id = 1, .isOnScreen = false};
  const ListedWindow slides{.id = 5, .layer = 0, .bounds = kLeft};
  EXPECT_EQ(captured(kSecond, {slides, {.id = 1}}), "frame 1");
  EXPECT_EQ(captured(kSecond, {slides, minimised}), "frame 5");
  EXPECT_EQ(captured(kSecond, {slides,
                               {.id = 4, .layer = 0, .bounds = kRight},
                               {.id = 9, .layer = 2, .bounds = kRight},
                               {.id = 8, .layer = 2, .bounds = kLeft},
                               minimised}),
            "frame 8")
      << "the highest, then the lowest number";
  EXPECT_EQ(captured(kSecond, {{.id = 5, .layer = -1, .bounds = kLeft}, minimised}), "window 1");
  EXPECT_EQ(captured(kSecond, {{.id = 5, .bounds = kLeft, .picture = WindowPicture::none}, minimised}),
            "window 1");
  EXPECT_EQ(captured(kSecond, {slides}), "gone") << "the shared window was closed";
}

TEST_F(PresentationStrategiesTest, othersTakeTheWindowItselfAndTheChoiceIsMadeOnce) {
  const ListedWindow slides{.id = 3, .name = "", .layer = 1, .bounds = kRight};
  for (const char* other : {"com.apple.iWork.Pages", "COM.MICROSOFT.POWERPOINT", ""}) {
    EXPECT_EQ(captured(other, {{.id = 1}, slides}), "frame 1");
  }
  server().set({{.id = 1, .owner = 999}, {.id = 3, .owner = 999, .name = "", .layer = 1, .bounds = kRight}});
  EXPECT_EQ(run(chooseCaptureFunction(Root::current(), describe(1))), "frame 1") << "of no application";
  server().setApplication(999, std::nullopt);
  EXPECT_EQ(run(chooseCaptureFunction(Root::current(), describe(1))), "frame 1")
      << "of one without identifier";

  server().setApplication(kOwner, kFirst);
  server().set({{.id = 1}});
  const auto window = target(1);
  EXPECT_TRUE(window->capture().value());
  server().setApplication(kOwner, "another");
  server().set({slides, {.id = 1}});
  for (int tick = 0; tick < 5; ++tick)
    EXPECT_FALSE(window->capture().value()) << "the bounds are the slides' now";
  EXPECT_TRUE(window->capture().value());
  EXPECT_EQ(window->frame(), CGRectMake(1000, 320, 640, 480));
  server().set({{.id = 1}});
  for (int tick = 0; tick < 5; ++tick) EXPECT_FALSE(window->capture().value());
  EXPECT_TRUE(window->capture().value()) << "and back";
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
