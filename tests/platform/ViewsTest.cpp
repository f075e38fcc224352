#include "support/LayerView.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NSView.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>
#include <thread>

namespace QelUtilVideo {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// Writes down which of its hooks were called, in a list that views may share.
class HookView : public NSView {
 public:
  using Hooks = std::vector<std::string>;
  HookView(std::string name, std::shared_ptr<Hooks> hooks)
      : NSView({{0, 0}, {10, 10}}), name_(std::move(name)), hooks_(std::move(hooks)) {}

  void viewWillMoveToWindow(const std::shared_ptr<NSWindow>& to) override {
    note(to ? "will" : "will leave");
  }
  void viewDidMoveToWindow() override { note(window() ? "did" : "did leave"); }
  void viewDidHide() override {
    note("hide");
    if (onHide) onHide();
  }
  void viewDidUnhide() override { note("unhide"); }
  void viewDidChangeBackingProperties() override { note("backing"); }

  std::function<void()> onHide;

 private:
  void note(const std::string& what) { hooks_->push_back(name_ + " " + what); }

  std::string name_;
  std::shared_ptr<Hooks> hooks_;
};

std::shared_ptr<NSView> plainView(CGRect frame = {{0, 0}, {10, 10}}) {
  return std::make_shared<NSView>(frame);
}

/// The pixel as 0xAARRGGBB; `x` and `y` count from the top-left corner.
std::uint32_t pixelAt(const CGImage& image, std::size_t x, std::size_t y) {
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, image.dataProvider()->bytes()->data() + y * image.layout().bytesPerRow + x * 4, 4);
  return pixel;
}

class ViewTree : public testing::Test {
 protected:
  ScopedMachine machine;
  std::shared_ptr<HookView::Hooks> hooks = std::make_shared<HookView::Hooks>();

  std::shared_ptr<HookView> hookView(const std::string& name) {
    return std::make_shared<HookView>(name, hooks);
  }
  HookView::Hooks takeHooks() { return std::exchange(*hooks, {}); }
};

// ── Geometry ──────────────────────────────────────────────────────────────────────────────────────

TEST_F(ViewTree, flexiblePartsOfASubviewShareWhatItsSuperviewGains) {
  // From (10, 20, 40, 50) in 100 x 100, which grows by 30 and 60.
  const std::vector<std::pair<std::uint32_t, CGRect>> cases{
      {NSViewNotSizable, CGRectMake(10, 20, 40, 50)},
      {NSViewWidthSizable | NSViewHeightSizable, CGRectMake(10, 20, 70, 110)},
      {NSViewMinXMargin | NSViewMinYMargin, CGRectMake(40, 80, 40, 50)},
      {NSViewMaxXMargin | NSViewMaxYMargin, CGRectMake(10, 20, 40, 50)},
      {NSViewMinXMargin | NSViewMaxXMargin, CGRectMake(25, 20, 40, 50)},
      {NSViewWidthSizable | NSViewMaxXMargin, CGRectMake(10, 20, 55, 50)},
      {NSViewMinYMargin | NSViewHeightSizable | NSViewMaxYMargin, CGRectMake(10, 40, 40, 70)},
  };
  for (const auto& [mask, expected] : cases) {
    const auto superview = plainView({{3, 4}, {100, 100}});
    const auto view = plainView({{10, 20}, {40, 50}});
    view->setAutoresizingMask(mask);
    superview->addSubview(view);
    superview->setFrame({{0, 0}, {130, 160}});
    EXPECT_EQ(view->frame(), expected) << "mask " << mask;
  }
}

TEST_F(ViewTree, resizingReachesEveryLevelAndStopsWhereItIsSwitchedOff) {
  const auto outer = plainView(CGRectZero), middle = plainView(CGRectZero), inner = plainView(CGRectZero);
  middle->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
  inner->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
  outer->addSubview(middle);
  middle->addSubview(inner);
  outer->setFrame({{0, 0}, {64, 48}});
  EXPECT_EQ(inner->frame(), CGRectMake(0, 0, 64, 48));
  middle->setAutoresizesSubviews(false);
  outer->setFrame({{0, 0}, {100, 100}});
  EXPECT_EQ(middle->frame(), CGRectMake(0, 0, 100, 100));
  EXPECT_EQ(inner->frame(), CGRectMake(0, 0, 64, 48));
}

TEST_F(ViewTree, impossibleFramesBecomeEmptyOnes) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  constexpr double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(plainView({{nan, -5}, {-1, 7}})->frame(), CGRectMake(0, -5, 0, 7));
  EXPECT_EQ(plainView({{1, -infinity}, {infinity, nan}})->frame(), CGRectMake(1, 0, 0, 0));
  EXPECT_EQ(NSWindow::makeOffscreen({nan, 0.2}, nan)->contentView()->bounds(), CGRectMake(0, 0, 1, 1));
}

// ── Tree ──────────────────────────────────────────────────────────────────────────────────────────

TEST_F(ViewTree, subviewsStandInTheOrderAskedFor) {
  const auto superview = plainView();
  const auto a = plainView(), b = plainView(), c = plainView(), d = plainView();
  superview->addSubview(a);
  superview->addSubview(b, NSWindowOrderingMode::below, nullptr);
  superview->addSubview(c, NSWindowOrderingMode::above, b.get());
  superview->addSubview(d, NSWindowOrderingMode::below, a.get());
  EXPECT_THAT(superview->subviews(), ElementsAre(b, c, d, a));

  superview->addSubview(b);  // again: moves to the front
  superview->addSubview(a, NSWindowOrderingMode::below, plainView().get());
  superview->addSubview(c, NSWindowOrderingMode::above, c.get());
  EXPECT_THAT(superview->subviews(), ElementsAre(a, c, d, b));
}

TEST_F(ViewTree, aViewLiesInOnePlaceAndNeverInItself) {
  const auto first = plainView(), second = plainView(), view = plainView();
  first->addSubview(view);
  second->addSubview(view);
  EXPECT_THAT(first->subviews(), IsEmpty());
  EXPECT_EQ(view->superview(), second);

  view->addSubview(second);
  view->addSubview(view);
  view->addSubview(nullptr);
  EXPECT_THAT(view->subviews(), IsEmpty());

  const auto window = NSWindow::makeOffscreen({20, 20});
  const auto content = window->contentView();
  first->addSubview(content);
  EXPECT_NE(window->contentView(), content);
  EXPECT_EQ(content->window(), nullptr);
}

// ── Hiding ────────────────────────────────────────────────────────────────────────────────────────

TEST_F(ViewTree, hidingReachesDescendantsThatWereInSightAndThoseThatMoveIn) {
  const auto top = hookView("top"), shown = hookView("shown"), hidden = hookView("hidden"),
             below = hookView("below");
  top->addSubview(shown);
  top->addSubview(hidden);
  hidden->addSubview(below);
  hidden->setHidden(true);
  EXPECT_THAT(takeHooks(), ElementsAre("hidden hide", "below hide"));

  top->setHidden(true);
  top->setHidden(true);
  EXPECT_THAT(takeHooks(), ElementsAre("top hide", "shown hide"));
  EXPECT_TRUE(shown->isHiddenOrHasHiddenAncestor());
  EXPECT_FALSE(shown->isHidden());

  hidden->setHidden(false);
  EXPECT_THAT(takeHooks(), IsEmpty());
  top->setHidden(false);
  EXPECT_THAT(takeHooks(), ElementsAre("top unhide", "shown unhide", "hidden unhide", "below unhide"));

  hidden->setHidden(true);
  takeHooks();
  hidden->addSubview(shown);
  shown->removeFromSuperview();
  EXPECT_THAT(takeHooks(), ElementsAre("shown hide", "shown unhide"));
}

TEST_F(ViewTree, aHookThatUndoesTheHidingLeavesNobodyMistaken) {
  const auto top = hookView("top"), child = hookView("child");
  top->addSubview(child);
  top->onHide = [&] { top->setHidden(false); };
  top->setHidden(true);
  EXPECT_THAT(takeHooks(), ElementsAre("top hide", "top unhide", "child unhide"));
}

// ── Windows ───────────────────────────────────────────────────────────────────────────────────────

TEST_F(ViewTree, aTreeEntersAndLeavesAWindowAsAWhole) {
  const auto window = NSWindow::makeOffscreen({30, 20}, 2);
  const auto top = hookView("top"), child = hookView("child");
  top->addSubview(child);
  window->contentView()->addSubview(top);
  EXPECT_EQ(child->window(), window);
  EXPECT_THAT(takeHooks(),
              ElementsAre("top will", "child will", "top backing", "top did", "child backing", "child did"));
  top->removeFromSuperview();
  EXPECT_EQ(child->window(), nullptr);
  const auto leaving = ElementsAre("top will leave", "child will leave", "top did leave", "child did leave");
  EXPECT_THAT(takeHooks(), leaving);

  window->setContentView(top);
  EXPECT_EQ(top->frame(), CGRectMake(0, 0, 30, 20));
  takeHooks();
  window->close();
  EXPECT_EQ(window->screen(), nullptr);
  EXPECT_THAT(takeHooks(), leaving);
}

TEST_F(ViewTree, aWindowThatGoesTakesItsViewsOutOnTheMainThread) {
  auto window = NSWindow::makeOffscreen({30, 20});
  const auto view = hookView("view");
  window->contentView()->addSubview(view);
  takeHooks();
  std::thread([&] { window.reset(); }).join();
  EXPECT_THAT(takeHooks(), IsEmpty());
  machine->runMain();
  EXPECT_THAT(takeHooks(), ElementsAre("view will leave", "view did leave"));
}

// ── Layers ────────────────────────────────────────────────────────────────────────────────────────

class Layers : public ViewTree {
 protected:
  ~Layers() override { EXPECT_THAT(machine->openGL().violations(), IsEmpty()); }

  SimulatedOpenGL& openGL = machine->openGL();
  std::shared_ptr<NSWindow> window = NSWindow::makeOffscreen({40, 30});
  std::shared_ptr<LayerView> view = LayerView::make(openGL, CGRectMake(0, 0, 20, 10));
};

TEST_F(Layers, aLayerIsDrivenWhileItsViewIsInSight) {
  const auto wrapper = plainView();
  wrapper->addSubview(view);
  EXPECT_THAT(openGL.contexts(), IsEmpty());
  window->contentView()->addSubview(wrapper);
  EXPECT_EQ(openGL.liveDrivers(), 1U);

  wrapper->setHidden(true);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  view->setHidden(true);
  wrapper->setHidden(false);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  view->setHidden(false);
  EXPECT_EQ(openGL.liveDrivers(), 1U);
  window->close();
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  EXPECT_EQ(openGL.contexts().size(), 1U);
  view->setWantsLayer(false);
  EXPECT_THAT(openGL.contexts(), IsEmpty());
}

TEST_F(Layers, aRefreshDrawsTheWholeViewOnASurfaceOfItsPixels) {
  for (const bool bestResolution : {false, true}) {
    window = NSWindow::makeOffscreen({40, 30}, 1.5);
    view->setWantsBestResolutionOpenGLSurface(bestResolution);
    view->setFrame(CGRectMake(5, 5, 21, 10));
    window->contentView()->addSubview(view);
    view->drawn.clear();
    openGL.refresh();
    EXPECT_THAT(view->drawn, ElementsAre(CGRectMake(0, 0, 21, 10)));
    EXPECT_EQ(openGL.contexts().at(0)->surfaceSize(), (bestResolution ? CGSize{32, 15} : CGSize{21, 10}));
  }
}

TEST_F(Layers, withoutAContextNothingIsDrawnUntilTheLayerGetsOne) {
  openGL.hasDriver = false;
  window->contentView()->addSubview(view);
  openGL.hasDriver = true;
  openGL.refresh();
  EXPECT_THAT(view->drawn, IsEmpty());
  view->setHidden(true);
  view->setHidden(false);
  openGL.contexts().at(0)->lost = true;
  openGL.refresh();
  EXPECT_THAT(view->drawn, IsEmpty());
  openGL.contexts().at(0)->lost = false;
  openGL.refresh();
  EXPECT_EQ(view->drawn.size(), 1U);

  view->openGLLayer().setOpenGLContext(nullptr);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  view->openGLLayer().setOpenGLContext(openGL.makeContext({}, nullptr));
  openGL.refresh();
  EXPECT_EQ(openGL.contexts().at(0)->flushes, 1);
}

TEST_F(Layers, aContextThatCannotBeHadIsTriedForAgainAFewTimes) {
  const auto drawsOnceThereIsADriver = [this] {
    machine->advance(2);
    openGL.refresh();
    EXPECT_THAT(view->drawn, IsEmpty());
    openGL.hasDriver = true;
    machine->advance(1.5);
    openGL.refresh();
    EXPECT_EQ(std::exchange(view->drawn, {}).size(), 1U);
    EXPECT_EQ(openGL.liveDrivers(), 1U);
  };
  openGL.hasDriver = false;
  window->contentView()->addSubview(view);
  drawsOnceThereIsADriver();

  openGL.hasDriver = false;
  openGL.contexts().at(0)->lost = true;
  openGL.refresh();
  machine->runMain();
  EXPECT_EQ(openGL.liveDrivers(), 0U) << "nobody refreshes what cannot be drawn";
  drawsOnceThereIsADriver();

  openGL.hasDriver = false;
  openGL.contexts().at(0)->lost = true;
  openGL.refresh();
  machine->advance(60);
  openGL.hasDriver = true;
  machine->advance(60);
  EXPECT_EQ(openGL.liveDrivers(), 0U) << "what does not come back is not waited for";
  view->setHidden(true);
  view->setHidden(false);
  EXPECT_EQ(openGL.liveDrivers(), 1U);
}

TEST_F(Layers, aViewThatIsRemovedAfterItsWindowWentIsNotDrivenAnyMore) {
  window->contentView()->addSubview(view);
  std::thread([this] { window.reset(); }).join();
  view->removeFromSuperview();
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  EXPECT_EQ(view->openGLLayer().surface(), nullptr);
}

TEST_F(Layers, whatDrawingThrowsIsReportedAndLeavesTheContextFree) {
  window->contentView()->addSubview(view);
  view->whileDrawing = [] { throw std::runtime_error("no paint"); };
  openGL.refresh();
  EXPECT_THAT(machine->systemLog().troubles(), ElementsAre(HasSubstr("no paint")));
  EXPECT_FALSE(openGL.contexts().at(0)->isLockedByThisThread());
}

TEST_F(Layers, aViewMayGoWhileItIsDrawn) {
  window->contentView()->addSubview(view);
  view->whileDrawing = [&] {
    window.reset();
    view.reset();
  };
  std::thread([&] { openGL.refresh(); }).join();
  machine->runMain();
  EXPECT_THAT(openGL.contexts(), IsEmpty());
  EXPECT_EQ(openGL.liveDrivers(), 0U);
}

TEST_F(Layers, aLayerThatIsNotAsynchronousDrawsWhenItIsMarked) {
  view = LayerView::make(openGL, CGRectMake(0, 0, 20, 10), false);
  window->contentView()->addSubview(view);
  EXPECT_EQ(openGL.liveDrivers(), 0U);
  machine->runMain();
  EXPECT_EQ(view->drawn.size(), 1U);
  view->openGLLayer().setNeedsDisplayOnBoundsChange(true);
  view->setFrame(CGRectMake(0, 0, 5, 5));
  machine->runMain();
  EXPECT_EQ(view->drawn.size(), 2U);
  view->setHidden(true);
  view->setNeedsDisplay(true);
  machine->runMain();
  EXPECT_EQ(view->drawn.size(), 2U);
}

TEST_F(Layers, aWindowsImageShowsWhatViewsPresentedBackToFront) {
  const auto front = LayerView::make(openGL, CGRectMake(10, 0, 20, 20));
  front->color = {0, 0, 0.4F, 0.4F};
  window->contentView()->addSubview(view);
  window->contentView()->addSubview(front);
  EXPECT_EQ(window->image(), nullptr);
  openGL.refresh();

  const auto image = window->image();
  ASSERT_TRUE(image);
  EXPECT_EQ(image->width(), 40U);
  EXPECT_EQ(image->height(), 30U);
  EXPECT_EQ(pixelAt(*image, 5, 25), 0xFFFF0000U);   // the view behind, alone
  EXPECT_EQ(pixelAt(*image, 15, 25), 0xFF990066U);  // both
  EXPECT_EQ(pixelAt(*image, 25, 15), 0x66000066U);  // the view in front, alone
  EXPECT_EQ(pixelAt(*image, 5, 5), 0U);             // neither

  front->setHidden(true);
  EXPECT_EQ(pixelAt(*window->image(), 15, 25), 0xFFFF0000U);
}

}  // namespace
}  // namespace QelUtilVideo
