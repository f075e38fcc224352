#include "platform/Displays.h"
#include "support/LayerView.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>
#include <QelUtilVideo/platform/NSWindow.h>
#include <QelUtilVideo/platform/NSWindowDelegate.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace QelUtilVideo {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Delegate final : public NSWindowDelegate {
 public:
  bool windowShouldClose(NSWindow&) override {
    note("should close");
    if (throws) throw std::runtime_error("undecided");
    return closes;
  }
  void windowWillClose(NSWindow& window) override {
    note("will close");
    window.close();  // once is enough
  }
  void windowDidResize(NSWindow& window) override {
    note("resize");
    if (closesOnResize) window.close();
  }
  void windowDidChangeScreen(NSWindow& window) override {
    note(window.screen() ? "screen " + window.screen()->localizedName() : "no screen");
  }
  void windowKeyDown(NSWindow&, const NSEvent& event) override { note("key " + event.characters); }

  std::vector<std::string> take() { return std::exchange(told_, {}); }

  bool closes = true;
  bool throws = false;
  bool closesOnResize = false;

 private:
  void note(const std::string& what) { told_.push_back(what); }
  std::vector<std::string> told_;
};

/// A window of our own on a machine with two displays side by side, the right one with two pixels a point.
class Window : public testing::Test {
 protected:
  Window() {
    machine->displays().set({{.id = 1, .name = "Left", .bounds = CGRectMake(0, 0, 100, 100)},
                             {.id = 2, .name = "Right", .bounds = CGRectMake(100, 0, 100, 100), .scale = 2}});
    window = NSWindow::make({40, 30}, "A title");
    window->setDelegate(delegate);
  }
  ~Window() override { EXPECT_THAT(machine->openGL().violations(), IsEmpty()); }

  [[nodiscard]] SimulatedWindow& display(std::size_t index = 0) {
    return *machine->views().windows.at(index);
  }
  [[nodiscard]] const SimulatedSurface& surface(std::size_t index = 0) {
    return *display().surfaces.at(index);
  }
  std::shared_ptr<LayerView> layerView(CGRect frame) {
    auto view = LayerView::make(openGL, frame);
    view->setWantsBestResolutionOpenGLSurface(true);
    return view;
  }

  ScopedMachine machine;
  SimulatedOpenGL& openGL = machine->openGL();
  std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
  std::shared_ptr<NSWindow> window;
};

TEST_F(Window, isMadeWhereThereIsADisplayOnly) {
  EXPECT_EQ(display().title, "A title");
  EXPECT_EQ(window->windowNumber(), display().number);
  window->setTitle("Another");
  EXPECT_EQ(display().title, "Another");
  EXPECT_EQ(NSWindow::makeInForeignWindow(4711), nullptr);
  machine->views().hasDisplay = false;
  EXPECT_EQ(NSWindow::make({1, 1}, ""), nullptr);
}

TEST_F(Window, isOnTheScreenThatShowsMostOfItWhileItIsShown) {
  std::vector<std::string> posted;
  machine->notificationCenter().addObserver(
      NSWindowDidChangeScreenNotification, window.get(),
      [&](const NSNotification& notification) { posted.push_back(notification.name); });
  EXPECT_EQ(window->screen(), nullptr);
  window->orderFront();
  display().set(CGRectMake(75, 0, 40, 30), true);
  display().set(CGRectMake(85, 0, 40, 30), true);
  EXPECT_EQ(window->backingScaleFactor(), 2);
  display().set(CGRectMake(300, 0, 40, 30), true);  // on none
  display().set(CGRectMake(300, 0, 40, 30), false);
  EXPECT_THAT(delegate->take(), ElementsAre("screen Left", "screen Right", "no screen"));
  EXPECT_EQ(posted.size(), 3U);

  // Where displays are not listed at all, windows show all the same.
  machine->displays().set({});
  window->orderFront();
  EXPECT_TRUE(window->screen());
  machine->displays().set({{.id = 9, .name = "New", .bounds = CGRectMake(250, 0, 100, 100)}});
  machine->displays().notify();
  EXPECT_EQ(window->screen()->localizedName(), "New");
}

TEST_F(Window, followsTheDisplaysSizeAndItsOwn) {
  const auto view = std::make_shared<NSView>(CGRectMake(0, 0, 40, 30));
  view->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
  window->contentView()->addSubview(view);
  display().set(CGRectMake(5, 5, 50, 20), true);
  EXPECT_EQ(view->frame(), CGRectMake(0, 0, 50, 20));
  delegate->take();
  display().set(CGRectMake(9, 9, 50, 20), true);
  EXPECT_THAT(delegate->take(), IsEmpty());

  window->setContentSize({1e9, 0});
  EXPECT_EQ(view->frame(), CGRectMake(0, 0, 32'767, 1));
  EXPECT_EQ(display().state.frame.size, (CGSize{32'767, 1}));
  EXPECT_THAT(delegate->take(), ElementsAre("resize", "screen Right"));
}

TEST_F(Window, closesWhenThePersonAsksAndTheDelegateAgrees) {
  delegate->closes = false;
  display().requestClose();
  delegate->throws = true;
  display().requestClose();
  EXPECT_THAT(machine->systemLog().troubles(), ElementsAre(HasSubstr("undecided")));
  EXPECT_THAT(delegate->take(), ElementsAre("should close", "should close"));
  display().press("q");
  delegate->throws = false;
  delegate->closes = true;
  window->orderFront();
  display().requestClose();
  EXPECT_THAT(delegate->take(),
              ElementsAre("key q", "screen Left", "should close", "will close", "no screen"));
  EXPECT_FALSE(display().open);
  EXPECT_EQ(window->windowNumber(), 0U);
  window->orderFront();
  window->setContentSize({3, 3});
  EXPECT_EQ(window->screen(), nullptr);
}

TEST_F(Window, survivesItsEndWhileTheDisplaySpeaks) {
  window->orderFront();
  window->contentView()->addSubview(layerView(CGRectMake(0, 0, 10, 10)));
  delegate->closesOnResize = true;
  display().set(CGRectMake(0, 0, 10, 10), true);
  EXPECT_FALSE(display().open);

  window = NSWindow::make({40, 30}, "Second");
  window->orderFront();
  const auto view = layerView(CGRectMake(0, 0, 10, 10));
  window->contentView()->addSubview(view);
  openGL.refresh();
  display(1).vanish();  // its server died
  EXPECT_FALSE(display(1).open);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  EXPECT_EQ(view->window(), nullptr);

  window = NSWindow::make({40, 30}, "Third");
  window->contentView()->addSubview(view);
  std::thread([&] { window.reset(); }).join();
  EXPECT_TRUE(display(2).open);
  EXPECT_EQ(display(2).surfaces.size(), 1U);
  machine->runMain();
  EXPECT_FALSE(display(2).open);
  EXPECT_THAT(display(2).surfaces, IsEmpty());
}

TEST_F(Window, aForeignWindowKeepsItsOwnerAndItsSize) {
  const auto foreign = machine->views().addForeign(CGRectMake(110, 10, 60, 50), false);
  window = NSWindow::makeInForeignWindow(foreign->number);
  window->setDelegate(delegate);
  EXPECT_EQ(window->contentSize(), (CGSize{60, 50}));
  EXPECT_EQ(window->screen(), nullptr);
  window->setContentSize({1, 1});
  EXPECT_EQ(window->contentSize(), (CGSize{60, 50}));
  foreign->set(CGRectMake(110, 10, 60, 50), true);
  EXPECT_THAT(delegate->take(), ElementsAre("screen Right"));
  window->close();
  EXPECT_TRUE(foreign->state.viewable);
}

TEST_F(Window, drawsAViewWhereItLiesInPixels) {
  display().set(CGRectMake(110, 0, 40, 30), true);  // two pixels a point
  const auto wrapper = std::make_shared<NSView>(CGRectMake(4, 6, 20, 20));
  const auto view = layerView(CGRectMake(1, 2, 10.25, 5));
  wrapper->addSubview(view);
  window->contentView()->addSubview(wrapper);
  EXPECT_EQ(surface().frame, CGRectMake(10, 34, 21, 10));
  EXPECT_FALSE(surface().hidden);
  ASSERT_EQ(openGL.contexts().size(), 1U);
  EXPECT_EQ(openGL.contexts()[0]->drawable(), surface().native);
  openGL.refresh();
  EXPECT_EQ(openGL.contexts()[0]->surfaceSize(), (CGSize{21, 10}));

  wrapper->setFrame(CGRectMake(5, 6, 20, 20));
  EXPECT_EQ(surface().frame, CGRectMake(12, 34, 21, 10));
  display().set(CGRectMake(110, 0, 40, 40), true);  // the lower left corner stays
  EXPECT_EQ(surface().frame, CGRectMake(12, 54, 21, 10));
  display().set(CGRectMake(0, 0, 40, 40), true);  // one pixel a point
  EXPECT_EQ(surface().frame, CGRectMake(6, 27, 10, 5));

  wrapper->setHidden(true);
  EXPECT_TRUE(surface().hidden);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  view->removeFromSuperview();
  EXPECT_THAT(display().surfaces, IsEmpty());
  EXPECT_EQ(openGL.contexts()[0]->drawable(), std::nullopt);
}

TEST_F(Window, stacksWhatViewsAreDrawnOnAsTheViews) {
  const auto behind = layerView(CGRectMake(0, 0, 10, 10)), front = layerView(CGRectMake(0, 0, 10, 10));
  window->contentView()->addSubview(front);
  window->contentView()->addSubview(behind, NSWindowOrderingMode::below, nullptr);
  EXPECT_GT(surface(0).raisedAt, surface(1).raisedAt);
  window->contentView()->addSubview(behind);
  EXPECT_GT(surface(1).raisedAt, surface(0).raisedAt);
}

TEST_F(Window, presentsAgainWhatTheDisplayLost) {
  const auto view = layerView(CGRectMake(0, 0, 10, 10));
  window->contentView()->addSubview(view);
  EXPECT_EQ(openGL.liveDrivers(), 0U);  // not shown yet
  window->orderFront();
  auto& context = *openGL.contexts().at(0);
  openGL.refresh();
  EXPECT_EQ(context.presentationsAgain, 0);

  view->canDraw = false;
  openGL.refresh();
  EXPECT_EQ(context.presentationsAgain, 0);
  surface().expose();
  openGL.refresh();
  openGL.refresh();
  EXPECT_EQ(context.presentationsAgain, 1);
  view->setFrame(CGRectMake(0, 0, 11, 10));  // stretched until there is a reason to draw
  openGL.refresh();
  EXPECT_EQ(context.presentationsAgain, 2);
  view->canDraw = true;
  surface().expose();
  openGL.refresh();
  EXPECT_EQ(context.presentationsAgain, 2);

  surface().occlude(true);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  surface().occlude(false);
  EXPECT_EQ(openGL.liveDrivers(), 1U);
}

TEST_F(Window, drawsAtTheRateOfItsScreen) {
  window->contentView()->addSubview(layerView(CGRectMake(0, 0, 10, 10)));
  machine->displays().set({{.id = 1, .bounds = CGRectMake(0, 0, 50, 50), .refreshRate = 144},
                           {.id = 2, .bounds = CGRectMake(50, 0, 50, 50), .refreshRate = 30}});
  window->orderFront();
  EXPECT_THAT(openGL.refreshRates(), ElementsAre(144));
  display().set(CGRectMake(50, 0, 40, 30), true);
  EXPECT_THAT(openGL.refreshRates(), ElementsAre(30));
}

TEST_F(Window, aContextIsReplacedOnlyWhenItCannotDrawWhereTheViewHasGone) {
  const auto view = layerView(CGRectMake(0, 0, 10, 10));
  window->contentView()->addSubview(view);
  window->orderFront();
  const auto context = openGL.contexts().at(0);
  const auto second = NSWindow::make({40, 30}, "Second");
  second->orderFront();
  second->contentView()->addSubview(view);
  EXPECT_EQ(view->openGLLayer().openGLContext(), context);
  EXPECT_EQ(context->drawable(), display(1).surfaces.at(0)->native);

  context->refusesWindows = true;
  window->contentView()->addSubview(view);
  EXPECT_NE(view->openGLLayer().openGLContext(), context);
  EXPECT_EQ(openGL.contexts().back()->drawable(), surface().native);

  display().refusesSurfaces = true;
  second->contentView()->addSubview(view);
  window->contentView()->addSubview(view);  // drawn off screen, which harms nobody
  openGL.refresh();
  EXPECT_EQ(openGL.contexts().back()->drawable(), std::nullopt);
}

}  // namespace
}  // namespace QelUtilVideo
