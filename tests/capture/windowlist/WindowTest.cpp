#include "capture/windowlist/Window.h"

#include "capture/RecordingDelegate.h"
#include "capture/windowlist/WindowStage.h"

#include <atomic>
#include <limits>
#include <thread>

namespace QelUtilVideo::windowlist {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

// ── The list ──────────────────────────────────────────────────────────────────────────────────────

class WindowListTest : public WindowStage {};

TEST_F(WindowListTest, hasOrdinaryOpaqueWindowsOfSomeSizeWithAnUsualImageFrontToBack) {
  server().set({
      {.id = 11, .bounds = CGRectMake(0, 0, 128, 128)},
      {.id = 12, .bounds = CGRectMake(0, 0, 127, 300)},
      {.id = 13, .bounds = CGRectMake(0, 0, 300, 127.5)},
      {.id = 14, .layer = 8},
      {.id = 15, .layer = -1},
      {.id = 16, .missing = {kCGWindowLayer}},
      {.id = 17, .alpha = 0.99},
      {.id = 18, .missing = {kCGWindowAlpha}},
      {.id = 19, .missing = {kCGWindowBounds}},
      {.id = 20, .missing = {kCGWindowNumber}},
      {.id = 21, .picture = WindowPicture::none},
      {.id = 22, .picture = WindowPicture::sixteenBits},
      {.id = 23, .picture = WindowPicture::grey},
      {.id = 24, .isOnScreen = false, .missing = {kCGWindowOwnerPID, kCGWindowName, kCGWindowIsOnscreen}},
      {.id = 25, .picture = WindowPicture::lostBytes},
  });
  EXPECT_THAT(listed(), ElementsAre(11, 24, 25));
  const auto requests = server().takeRequests();
  EXPECT_EQ(requests.lists, 1);
  EXPECT_EQ(requests.images, 6) << "cheap tests come before the image";
  EXPECT_EQ(requests.pixels, 0);
  EXPECT_EQ(requests.imageOptions,
            kCGWindowImageBoundsIgnoreFraming | kCGWindowImageShouldBeOpaque | kCGWindowImageBestResolution);

  server().setReachable(false);
  EXPECT_THAT(listed(), IsEmpty());
  EXPECT_THAT(log.messages(), testing::Each(testing::HasSubstr("Screen"))) << "they come and go silently";

  server().setReachable(true);
  constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
  server().set({{.id = 1, .bounds = CGRectMake(0, 0, unknown, unknown)}});
  EXPECT_THAT(listed(), IsEmpty());
}

TEST_F(WindowListTest, readsAValueOfAnotherTypeLikeAMissingOne) {
  const WindowInfo odd{{{kCGWindowOwnerPID, "5"},
                        {kCGWindowOwnerName, 5},
                        {kCGWindowName, 5},
                        {kCGWindowLayer, 0.0},
                        {kCGWindowAlpha, 1},
                        {kCGWindowBounds, Dictionary{{"X", 0.0}, {"Y", 0.0}, {"Width", 9}, {"Height", 9.0}}},
                        {kCGWindowIsOnscreen, 1}},
                       3};
  EXPECT_TRUE(odd.ownerProcess() == 0 && odd.ownerName().empty() && odd.name().empty());
  EXPECT_FALSE(odd.layer() || odd.alpha() || odd.isOnScreen());
  EXPECT_TRUE(CGRectIsNull(odd.bounds()));
  EXPECT_FALSE(WindowInfo::of({{kCGWindowNumber, std::int32_t{3}}})) << "a number has no sign";
}

TEST_F(WindowListTest, keepsATargetAsLongAsItIsTheSameWindow) {
  server().set({{.id = 1, .owner = 5}, {.id = 2, .owner = 5}});
  const auto first = CapturableWindowManager::windows();
  server().set(
      {{.id = 2, .owner = 5, .name = "New", .bounds = CGRectMake(9, 9, 300, 300)}, {.id = 1, .owner = 5}});
  const auto second = CapturableWindowManager::windows();
  EXPECT_THAT(second, ElementsAre(first[1], first[0]));
  EXPECT_EQ(second[0]->windowName(), "New");
  EXPECT_EQ(second[0]->frame(), CGRectMake(9, 491, 300, 300));

  server().set({{.id = 1, .owner = 6}, {.id = 2, .owner = 5}});
  const auto third = CapturableWindowManager::windows();
  EXPECT_NE(third[0], first[0]) << "the number went to another owner";
  EXPECT_EQ(third[1], first[1]);
  server().set({});
  EXPECT_THAT(listed(), IsEmpty());
  server().set({{.id = 2, .owner = 5}});
  EXPECT_NE(CapturableWindowManager::windows()[0], first[1]) << "what was dropped is not listed again";
}

// ── One window ────────────────────────────────────────────────────────────────────────────────────

class WindowTest : public WindowStage {
 protected:
  /// A capture now: "frame", "nothing" or "gone".
  static std::string capture(Window& window) {
    auto result = window.capture();
    if (!result.hasValue()) return "gone";
    return result.value() ? "frame" : "nothing";
  }
  void tick(int times = 1) { machine->advance(0.1 * times); }
};

TEST_F(WindowTest, saysWhatItsDescriptionSaid) {
  server().set({{.id = 42, .owner = 77, .ownerName = "Editor", .bounds = CGRectMake(100, 50, 800, 600)}});
  const auto window = target(42);
  EXPECT_EQ(window->uniqueID(), "QelUtilVideo.CapturableWindow.CGWindowID.42");
  EXPECT_EQ(window->name(), "Editor - Document");
  EXPECT_EQ(window->processIdentifier(), 77);
  EXPECT_EQ(window->frame(), CGRectMake(100, 150, 800, 600));
  EXPECT_TRUE(window->isOnScreen() && window->isScreen() && window->isWindow() && !window->isCamera());
  EXPECT_TRUE(window->isAvailable());
  static_cast<void>(server().takeRequests());
  EXPECT_EQ(window->snapshotImage()->image()->width(), 800U);
  EXPECT_EQ(server().takeRequests().pixels, 1) << "of now, not of when they are looked at";

  server().change(42, [](ListedWindow& changed) {
    changed.ownerName = "Other";
    changed.picture = WindowPicture::sixteenBits;
    changed.missing = {kCGWindowName, kCGWindowBounds, kCGWindowIsOnscreen};
  });
  window->update(*WindowInfo::of(server().CGWindowListCreateDescriptionFromArray({{42}}).front()));
  EXPECT_EQ(window->name(), "Editor");
  EXPECT_FALSE(window->isOnScreen() || window->isAvailable());
  EXPECT_TRUE(CGRectIsNull(window->bounds()));
  EXPECT_TRUE(window->snapshotImage()) << "people may look at what cannot be captured";
  server().change(42, [](ListedWindow& changed) { changed.picture = WindowPicture::lostBytes; });
  EXPECT_FALSE(window->snapshotImage());

  const WindowInfo bare{{{kCGWindowOwnerPID, "text"}}, 3};
  const auto unknown = std::make_shared<Window>(Root::current(), bare);
  EXPECT_EQ(unknown->name(), "");
  EXPECT_EQ(unknown->processIdentifier(), 0);
}

TEST_F(WindowTest, givesNothingWhileItMovesAndTheFifthFrameOfRest) {
  server().set({{.id = 1}});
  const auto window = target(1);
  EXPECT_EQ(capture(*window), "frame") << "it stood still when it was listed";
  for (int move = 1; move <= 3; ++move) {
    server().change(1, [&](ListedWindow& moved) { moved.bounds.origin.x = move; });
    EXPECT_EQ(capture(*window), "nothing");
  }
  for (int rest = 1; rest <= 4; ++rest) EXPECT_EQ(capture(*window), "nothing") << rest;
  EXPECT_EQ(capture(*window), "frame");
  server().change(1, [&](ListedWindow& moved) { moved.missing = {kCGWindowBounds}; });
  for (int rest = 1; rest <= 5; ++rest)
    EXPECT_EQ(capture(*window), "nothing") << "null bounds are bounds: " << rest;
  EXPECT_EQ(capture(*window), "frame");
}

TEST_F(WindowTest, tellsOfItsLifeInASessionsEvents) {
  server().set({{.id = 1}, {.id = 2}});
  const auto window = target(1);
  const auto delegate = std::make_shared<RecordingDelegate>();
  EXPECT_TRUE(window->start(delegate, nullptr));
  tick();
  server().change(1, [](ListedWindow& moved) { moved.bounds.size.width = 250; });
  tick(6);
  server().change(1, [](ListedWindow& minimised) { minimised.isOnScreen = false; });
  tick(2);
  EXPECT_FALSE(window->isOnScreen());
  server().change(1, [](ListedWindow& restored) { restored.isOnScreen = true; });
  tick();
  server().set({{.id = 2}});
  tick(3);
  machine->settle();
  std::vector<std::string> events = delegate->events();
  events.erase(std::unique(events.begin(), events.end()), events.end());
  EXPECT_THAT(events, ElementsAre("willStart", "didStart", "frame", "begin", "end", "frame", "begin", "end",
                                  "frame", "didStop failedToCapture"));

  // Gone from the start, and dropped while it runs.
  const auto late = std::make_shared<RecordingDelegate>();
  window->start(late, nullptr);
  tick();
  EXPECT_THAT(late->events(), ElementsAre("willStart", "didFailToStart failedToCapture"));
  const auto silent = std::make_shared<RecordingDelegate>();
  auto other = target(2);
  other->start(silent, nullptr);
  server().set({});
  EXPECT_THAT(listed(), IsEmpty());
  other.reset();
  tick(3);
  EXPECT_THAT(silent->events(), ElementsAre("willStart"));
}

TEST_F(WindowTest, isListedOnOneThreadWhileItIsCapturedOnAnother) {
  server().set({{.id = 1}, {.id = 2}});
  const auto window = target(1);
  std::atomic<bool> isDone = false;
  std::thread lister([&] {
    for (int x = 0; !isDone; x = (x + 1) % 50) {
      server().change(1, [x](ListedWindow& moved) { moved.bounds.origin.x = x; });
      static_cast<void>(CapturableWindowManager::windows());
    }
  });
  for (int i = 0; i < 200; ++i) {
    EXPECT_NE(capture(*window), "gone");
    EXPECT_EQ(window->frame().size, (CGSize{200, 150}));
    EXPECT_EQ(window->name(), "Editor - Document");
  }
  isDone = true;
  lister.join();
}

}  // namespace
}  // namespace QelUtilVideo::windowlist
