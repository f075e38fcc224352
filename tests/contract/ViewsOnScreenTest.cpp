#include "contract/PresentationStage.h"
#include "support/PrivateXServer.h"
#include "support/XProgram.h"

#include <QelUtilVideo/platform/NSScreen.h>

#include <chrono>
#include <cstdlib>
#include <optional>
#include <thread>

namespace QelUtilVideo {
namespace {

using qeltest::PrivateXServer;

/// Views in windows of a real X server.
class ViewsOnScreen : public PresentationStage {
 protected:
  void SetUp() override {
    QEL_REQUIRE_X_SERVER();
    server_ = PrivateXServer::start({.width = 640, .height = 480});
    ASSERT_TRUE(server_);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read when the platform is made
    ::setenv("DISPLAY", server_->display().c_str(), 1);
    other_.emplace(server_->display());
    begin();
  }
  void TearDown() override {
    if (machine_) PresentationStage::TearDown();
    // NOLINTNEXTLINE(concurrency-mt-unsafe): as above
    ::unsetenv("DISPLAY");
  }
  void open(CGSize size) {
    fill(NSWindow::make(size, "Card"));
    window->orderFront();
  }
  /// Waits until the screen shows the card as it should in the window.
  void expectOnScreen(PixelCount size, const Showing& showing = {}, std::int16_t x = 0, std::int16_t y = 0) {
    const xcb_rectangle_t place{x, y, static_cast<std::uint16_t>(size.width),
                                static_cast<std::uint16_t>(size.height)};
    expectShown([&] { return other_->image(place); }, size, card_, showing);
  }

  std::unique_ptr<PrivateXServer> server_;
  std::optional<XProgram> other_;
  const TestCard card_{{72, 48}};
};

TEST_P(ViewsOnScreen, showTheLastPictureAfterAStormOfSizesAndPictures) {
  open({160, 120});
  show(card_);
  expectOnScreen({160, 120});
  for (int change = 0; change < 60; ++change) {
    show(card_, allOrientations[static_cast<std::size_t>(change % 8)]);
    window->setContentSize({80.0 + change * 37 % 300, 60.0 + change * 53 % 200});
    serve();
    std::this_thread::sleep_for(std::chrono::milliseconds(change % 3 * 4));
  }
  window->setContentSize({201, 133});
  show(card_, CGImagePropertyOrientation::left);
  expectOnScreen({201, 133}, {CGImagePropertyOrientation::left});
  // What is read back is what is shown.
  expectShown({201, 133}, card_, {CGImagePropertyOrientation::left});
}

TEST_P(ViewsOnScreen, comeBackFromBehindOtherWindowsAndFromBeingHidden) {
  open({160, 120});
  show(card_);
  expectOnScreen({160, 120});
  const xcb_window_t cover = other_->makeWindow({20, 10, 90, 90}, kWhite);
  other_->map(cover);
  EXPECT_EQ(other_->pixelAt(60, 50), kWhite);
  other_->destroy(cover);
  expectOnScreen({160, 120});

  view->setHidden(true);
  EXPECT_TRUE(serveUntil([&] { return other_->pixelAt(80, 60) == 0; }));
  show(card_, CGImagePropertyOrientation::down);
  view->setHidden(false);
  expectOnScreen({160, 120}, {CGImagePropertyOrientation::down});

  window->orderOut();
  ASSERT_TRUE(serveUntil([&] { return !window->screen(); }));
  view->setFitInBounds(false);
  show(card_, CGImagePropertyOrientation::upMirrored);
  serve();
  window->orderFront();
  expectOnScreen({160, 120}, {CGImagePropertyOrientation::upMirrored, false});

  // In two windows one after the other, and in none in between.
  const auto second = NSWindow::make({100, 90}, "Second");
  second->orderFront();
  view->removeFromSuperview();
  second->contentView()->addSubview(view);
  view->setFrame(second->contentView()->bounds());
  window->orderOut();
  expectOnScreen({100, 90}, {CGImagePropertyOrientation::upMirrored, false});
}

TEST_P(ViewsOnScreen, liveInForeignWindowsUntilTheseGo) {
  const xcb_window_t foreign = other_->makeWindow({30, 20, 120, 100}, kWhite);
  fill(NSWindow::makeInForeignWindow(foreign));
  show(card_);
  serve();
  EXPECT_FALSE(window->screen());
  other_->map(foreign);
  expectOnScreen({120, 100}, {}, 30, 20);
  const xcb_window_t refuge = other_->makeWindow({200, 100, 300, 300}, kWhite);
  other_->map(refuge);
  other_->reparent(foreign, refuge, 10, 10);
  other_->configure(foreign, XCB_CONFIG_WINDOW_WIDTH, {140, 90});
  show(card_, CGImagePropertyOrientation::right);
  expectOnScreen({140, 90}, {CGImagePropertyOrientation::right}, 210, 110);
  for (int frame = 0; frame < 20; ++frame) {
    show(card_);
    serve();
    if (frame == 10) other_->destroy(foreign);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_TRUE(serveUntil([&] { return window->windowNumber() == 0; }));
  // It can be shown elsewhere.
  open({96, 64});
  show(card_);
  expectOnScreen({96, 64});
}

TEST_P(ViewsOnScreen, mayBeClosedWhileTheyAreDrawn) {
  for (int round = 0; round < 8; ++round) {
    open({90, 70});
    for (int frame = 0; frame < 6; ++frame) {
      show(card_);
      serve();
      std::this_thread::sleep_for(std::chrono::milliseconds(frame));
    }
    if (round % 3 == 0) window->close();
    if (round % 3 == 1) view->removeFromSuperview();
    if (round % 3 == 2) window.reset();
    show(card_);
    serve();
  }
}

TEST_P(ViewsOnScreen, surviveTheEndOfTheServer) {
  open({200, 150});
  show(card_);
  expectOnScreen({200, 150});
  for (int frame = 0; frame < 60; ++frame) {
    show(card_, allOrientations[static_cast<std::size_t>(frame % 8)]);
    serve();
    if (frame == 20) server_->kill();
    std::this_thread::sleep_for(std::chrono::milliseconds(4));
  }
  EXPECT_TRUE(serveUntil([&] { return window->windowNumber() == 0; }));
  // Off screen it goes on.
  fill(NSWindow::makeOffscreen({96, 64}));
  show(card_);
  expectShown({96, 64}, card_, {});
}

INSTANTIATE_TEST_SUITE_P(Backends, ViewsOnScreen, testing::Values(PresentedBy::metal, PresentedBy::openGL),
                         nameOf);

}  // namespace
}  // namespace QelUtilVideo
