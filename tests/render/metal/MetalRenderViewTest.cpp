#include "render/metal/MetalRenderView_macOS.h"

#include "render/RenderViewImpl.h"
#include "render/metal/DisplayLink.h"
#include "support/simulated/LogCapture.h"
#include "support/simulated/SimulatedPlatform.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <thread>
#include <utility>

namespace QelUtilVideo {
namespace {

using QelKit::QelVideoImageBuffer;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

CVPixelBufferRef makePicture(std::size_t width, std::size_t height,
                             OSType format = kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange) {
  CVPixelBufferRef buffer;
  EXPECT_EQ(CVPixelBufferCreate(width, height, format, buffer), kCVReturnSuccess);
  return buffer;
}

struct CountingDelegate final : RenderViewDelegate {
  void renderViewWillRender(RenderView&) override {
    ++told;
    if (react) react();
  }
  int told = 0;
  std::function<void()> react;
};

/// A Metal view in an off-screen window of 640 × 360, with a buffer to show.
class MetalViews : public testing::Test {
 protected:
  MetalViews() {
    machine->metal().setPresent(true);
    window = NSWindow::makeOffscreen({640, 360});
    view = RenderView::make(window->contentView()->bounds());
  }
  MetalRecord& record() { return machine->metal().record(); }
  SimulatedDisplayLinks::State& links() { return machine->displayLinks().state(); }
  void show() { window->contentView()->addSubview(view), machine->settle(), record().passes.clear(); }
  /// How many of this number of refreshes draw.
  std::size_t draws(int refreshes = 1) {
    const std::size_t before = record().passes.size();
    while (refreshes-- > 0) {
      machine->displayLinks().refresh();
      machine->settle();
    }
    return record().passes.size() - before;
  }
  void setImage(double timestamp, std::size_t width = 320, std::size_t height = 180,
                CGImagePropertyOrientation orientation = CGImagePropertyOrientation::up) {
    buffer->setImage(makePicture(width, height), timestamp, orientation);
  }
  [[nodiscard]] std::ptrdiff_t lines(const std::string& ending) {
    return std::ranges::count_if(log.messages(), [&](const auto& line) { return line.ends_with(ending); });
  }
  [[nodiscard]] NSView& backend() { return *view->subviews()[0]; }

  ScopedMachine machine;
  LogCapture log;
  std::shared_ptr<NSWindow> window;
  std::shared_ptr<RenderView> view;
  std::shared_ptr<QelVideoImageBuffer> buffer = std::make_shared<QelVideoImageBuffer>();
};

// ── Ticks ─────────────────────────────────────────────────────────────────────────────────────────

TEST_F(MetalViews, shareOneLinkThatRunsWhileOneOfThemIsSeen) {
  EXPECT_THAT(log.messages(), Contains(EndsWith(" initialized display link")));
  EXPECT_EQ(links().created, 0);
  window->contentView()->addSubview(view);
  EXPECT_THAT(log.messages(), Contains("[DisplayLink] started (60.0 fps)"));
  EXPECT_EQ(lines(" started display link"), 1);
  const auto second = RenderView::make({{0, 0}, {64, 36}});
  window->contentView()->addSubview(second);
  EXPECT_EQ(links().created, 1);
  second->subviews()[0]->setHidden(false);
  EXPECT_EQ(lines(" started display link"), 3) << "each time it is asked";

  view->subviews()[0]->setHidden(true);
  EXPECT_EQ(links().running, 1);
  second->removeFromSuperview();
  EXPECT_EQ(links().running, 0);
  EXPECT_EQ(lines("[DisplayLink] stopped"), 1);
  second->subviews()[0]->setHidden(false);
  EXPECT_EQ(links().running, 0) << "it lies in no window";
  links().period = {0, 60};
  view->subviews()[0]->setHidden(false);
  EXPECT_EQ(log.messages()[log.messages().size() - 2], "[DisplayLink] started");
  view->removeFromSuperview();
  view.reset();
  EXPECT_EQ(links().running, 0);
  EXPECT_EQ(lines(" invalidated display link"), 1);
  EXPECT_THAT(log.messages().back(), EndsWith(" deinit"));
}

TEST_F(MetalViews, areDrawnWhenAndOnlyWhenSomethingIsNew) {
  show();
  EXPECT_EQ(draws(3), 0U) << "nothing to show";
  view->setImageBuffer(buffer);
  EXPECT_EQ(draws(3), 1U) << "a setting";
  setImage(1);
  EXPECT_EQ(draws(3), 1U);
  setImage(2);
  EXPECT_EQ(draws(3), 1U);
  view->setBlurRadius(3);
  EXPECT_EQ(draws(3), 1U);
  view->setAutomaticallyAdjustsFitMode(false);
  EXPECT_EQ(draws(3), 0U);
  view->setFitInBounds(true);
  EXPECT_EQ(draws(3), 1U);
  view->setRotateAnimationEnabled(true);
  EXPECT_EQ(draws(3), 0U);

  setImage(3, 320, 180, CGImagePropertyOrientation::right);
  EXPECT_EQ(draws(), 1U);
  machine->advance(0.1);
  EXPECT_EQ(draws(), 1U) << "the turn goes on without a new frame";
  machine->advance(0.1);
  EXPECT_EQ(draws(3), 1U) << "and ends";
  EXPECT_EQ(record().queues + record().caches + record().libraries, 5) << "each is made once";
}

TEST_F(MetalViews, mayBeAddedAndDestroyedWhileOthersAreDrawn) {
  show();
  auto second = RenderView::make({{0, 0}, {64, 36}});
  window->contentView()->addSubview(second);
  const auto delegate = std::make_shared<CountingDelegate>();
  delegate->react = [&] {
    if (second) second->removeFromSuperview(), second.reset();
    window->contentView()->addSubview(RenderView::make({{0, 0}, {8, 8}}));
  };
  second->setImageBuffer(buffer);
  view->setDelegate(delegate);
  view->setImageBuffer(buffer);
  setImage(1);
  EXPECT_EQ(draws(), 2U) << "and the new one";
  EXPECT_EQ(delegate->told, 1);
  setImage(2);
  std::thread([dropped = std::exchange(view, nullptr)]() mutable { dropped.reset(); }).join();
  while (!window->contentView()->subviews().empty())
    window->contentView()->subviews()[0]->removeFromSuperview();
  EXPECT_EQ(draws(2), 0U);
  EXPECT_EQ(links().running, 0);
}

// ── What is drawn ─────────────────────────────────────────────────────────────────────────────────

TEST_F(MetalViews, drawTheTwoPlanesOnAQuadAndTellTheSizeLater) {
  show();
  const auto delegate = std::make_shared<CountingDelegate>();
  view->setDelegate(delegate);
  view->setFrame({{0, 0}, {640.4, 359.6}});  // 640 × 360 in whole pixels
  machine->settle();
  record().passes.clear();
  view->setImageBuffer(buffer);
  setImage(5, 320, 240);
  machine->displayLinks().refresh();
  machine->settle();
  ASSERT_THAT(record().passes, SizeIs(1));
  const MetalRecord::Pass& pass = record().passes[0];
  EXPECT_EQ(pass.pipeline, "renderVertex/renderFragmentYUV");
  EXPECT_EQ(pass.vertices, 4U);
  ASSERT_THAT(pass.textures, SizeIs(2));
  EXPECT_EQ(pass.textures[0]->pixelFormat(), MTLPixelFormat::r8Unorm);
  EXPECT_EQ(pass.textures[1]->pixelFormat(), MTLPixelFormat::rg8Unorm);
  EXPECT_EQ(pass.textures[1]->width(), 160U);
  ASSERT_THAT(pass.vertexBuffers, SizeIs(2));
  // 4:3 covers 16:9: as wide, and taller than it.
  EXPECT_THAT(pass.vertexBuffers[0],
              ElementsAre(-1, -0.75F, 0, 0, 1, 1, -0.75F, 0, 1, 1, -1, 0.75F, 0, 0, 0, 1, 0.75F, 0, 1, 0));
  EXPECT_THAT(pass.vertexBuffers[1], SizeIs(16));
  EXPECT_FLOAT_EQ(pass.vertexBuffers[1][5], 640.0F / 360.0F);
  EXPECT_THAT(record().labels, Contains(HasSubstr("[RenderView:Metal:")));
  EXPECT_THAT(record().presented, SizeIs(record().labels.size()));
  EXPECT_EQ(view->contentSize(), (CGSize{320, 240}));
  EXPECT_EQ(delegate->told, 1);
  const int buffers = record().buffers;
  setImage(6, 320, 240);
  EXPECT_EQ(draws(), 1U);
  EXPECT_EQ(record().buffers, buffers) << "the same place";
  view->setBlurRadius(0);
  EXPECT_EQ(draws(), 1U);
  EXPECT_EQ(delegate->told, 2) << "not of the same frame again";
}

TEST_F(MetalViews, areClearedWhereThereIsNothingToShow) {
  show();
  view->setImageBuffer(buffer);
  setImage(1);
  EXPECT_EQ(draws(), 1U);
  view->setBackgroundColor(NSColor::deviceWhite(0.5));
  view->setDeviceType(std::uint8_t{9});
  const auto delegate = std::make_shared<CountingDelegate>();
  view->setDelegate(delegate);
  EXPECT_EQ(draws(3), 3U) << "a frame that is filtered out is tried again at each refresh";
  EXPECT_EQ(delegate->told, 2) << "before each but the first, which follows the same frame";
  EXPECT_EQ(record().passes.back().pipeline, "");
  EXPECT_EQ(record().passes.back().clearColor, (MTLClearColor{0.5, 0.5, 0.5, 1}));
  EXPECT_EQ(view->contentSize(), CGSize{});
  view->setDeviceType(std::nullopt);
  EXPECT_EQ(draws(), 1U);

  buffer->setImage(makePicture(32, 32, kCVPixelFormatType_32BGRA), 2);
  EXPECT_EQ(draws(), 1U);
  EXPECT_EQ(record().passes.back().pipeline, "");
  const std::string code = std::to_string(kCVReturnInvalidArgument);
  EXPECT_EQ(lines(" failed to create texture from the pixel buffer (index=0, ret=" + code + ")"), 1);
  EXPECT_EQ(lines(" failed to create texture from the pixel buffer (index=1, ret=" + code + ")"), 1);
  setImage(3);
  EXPECT_EQ(draws(), 1U);
  view->setImageBuffer(nullptr);
  EXPECT_EQ(draws(3), 1U);
  EXPECT_THAT(log.messages(), Contains(EndsWith(" setDataSource <nil>")));
}

TEST_F(MetalViews, animateTurnsOfOneSourceOnly) {
  show();
  view->setRotateAnimationEnabled(true);
  view->setImageBuffer(buffer);
  setImage(1);
  EXPECT_EQ(draws(), 1U);
  const auto other = std::make_shared<QelVideoImageBuffer>();
  other->setImage(makePicture(320, 180), 2, CGImagePropertyOrientation::right);
  view->setImageBuffer(other);
  EXPECT_EQ(draws(3), 1U) << "another source switches";
  other->setImage(makePicture(320, 180), 3, CGImagePropertyOrientation::up);
  EXPECT_EQ(draws(3), 3U) << "the same one turns";
  machine->advance(1);
  EXPECT_EQ(draws(), 1U);
  other->setImage(makePicture(320, 180), 4, CGImagePropertyOrientation::down, 7);
  EXPECT_EQ(draws(3), 1U) << "another device of it switches";
}

TEST_F(MetalViews, doWithoutWhatTheProcessorDoesNotGive) {
  show();
  view->setImageBuffer(buffer);
  setImage(1);
  EXPECT_EQ(draws(), 1U);
  const CGSize size = view->contentSize();
  record().hasNoDrawable = true;
  setImage(2);
  EXPECT_EQ(draws(2), 0U);
  record().hasNoDrawable = false;
  record().hasNoCommandBuffer = true;
  EXPECT_EQ(draws(2), 0U);
  EXPECT_EQ(view->contentSize(), size);
  record().hasNoCommandBuffer = false;
  EXPECT_EQ(draws(2), 1U);

  // A mark that found no drawable stays, and is tried again by itself.
  record().hasNoDrawable = true;
  view->setFrame({{0, 0}, {320, 200}});
  machine->settle();
  record().hasNoDrawable = false;
  record().passes.clear();
  machine->advance(0.1);
  EXPECT_THAT(record().passes, SizeIs(1));
  EXPECT_EQ(record().drawableSize, (CGSize{320, 200}));
}

TEST_F(MetalViews, loseNoSettingToAProcessorThatIsBusy) {
  show();
  view->setImageBuffer(buffer);
  setImage(1);
  EXPECT_EQ(draws(), 1U);
  const auto comesLater = [&](bool MetalRecord::*fault, const std::function<void()>& change) {
    record().*fault = true;
    change();
    EXPECT_EQ(draws(2), 0U);
    record().*fault = false;
    record().passes.clear();
    machine->advance(0.1);
    EXPECT_THAT(record().passes, SizeIs(1)) << "without a refresh";
  };
  comesLater(&MetalRecord::hasNoDrawable, [&] { view->setImageBuffer(nullptr); });
  comesLater(&MetalRecord::hasNoCommandBuffer, [&] { view->setFitInBounds(true); });

  // It is given up until there is another reason.
  record().hasNoDrawable = true;
  view->setFitInBounds(false);
  EXPECT_EQ(draws(), 0U);
  machine->advance(60);
  const int asked = record().asked;
  machine->advance(60);
  EXPECT_EQ(record().asked, asked);
}

TEST_F(MetalViews, showWhatTheyDrewWhateverTheHostDoesMeanwhile) {
  show();
  const auto delegate = std::make_shared<CountingDelegate>();
  view->setDelegate(delegate);
  view->setImageBuffer(buffer);
  const auto showsWhatItDrew = [&](double timestamp, const std::function<void()>& react) {
    record().passes.clear();
    record().presented.clear();
    const int told = delegate->told;
    delegate->react = react;
    setImage(timestamp);
    machine->displayLinks().refresh();
    machine->runMain();
    delegate->react = nullptr;
    ASSERT_THAT(record().passes, Not(IsEmpty()));
    ASSERT_THAT(record().presented, SizeIs(record().passes.size()));
    EXPECT_EQ(record().presented[0], record().passes[0].target);
    EXPECT_EQ(record().presented.back(), record().passes.back().target);
    EXPECT_EQ(delegate->told, told + 1);
  };
  showsWhatItDrew(1, [&] { view->setFrame({{0, 0}, {100, 50}}); });
  showsWhatItDrew(2, [&] {
    machine->displayLinks().refresh();
    machine->runMain();
  });
  const auto other = NSWindow::makeOffscreen({50, 50});
  showsWhatItDrew(3, [&] { other->contentView()->addSubview(view); });
}

TEST_F(MetalViews, areDrawnAgainWhenTheHostResizesThemMeanwhile) {
  show();
  const auto delegate = std::make_shared<CountingDelegate>();
  view->setDelegate(delegate);
  view->setImageBuffer(buffer);
  delegate->react = [&] { view->setFrame({{0, 0}, {100, 300}}); };
  setImage(2);
  EXPECT_EQ(draws(), 2U);
  ASSERT_THAT(record().passes, SizeIs(2));
  EXPECT_EQ(record().passes[0].target->width(), 640U);
  EXPECT_NE(record().passes[0].vertexBuffers, record().passes[1].vertexBuffers) << "each for its own target";
  EXPECT_EQ(record().passes[1].target->width(), 100U);
  EXPECT_EQ(record().passes[1].target->height(), 300U);
}

TEST_F(MetalViews, areTriedAgainHoweverOftenTheProcessorWasBusyBefore) {
  show();
  view->setImageBuffer(buffer);
  for (int i = 1; i <= 130; ++i) {
    record().hasNoDrawable = true;
    setImage(i);
    draws();
    record().hasNoDrawable = false;
    EXPECT_EQ(draws(), 1U);
    machine->advance(0.1);
  }
  record().hasNoDrawable = true;
  view->setImageBuffer(nullptr);
  draws();
  record().hasNoDrawable = false;
  record().passes.clear();
  machine->advance(5);
  EXPECT_THAT(record().passes, SizeIs(1));
}

TEST_F(MetalViews, areDrawnWhereTheyAre) {
  window->contentView()->addSubview(view);
  machine->settle();
  EXPECT_THAT(record().passes, SizeIs(1)) << "a new view shows its background";
  const auto shown = NSWindow::make({640, 360}, "Shown");
  shown->orderFront();
  shown->contentView()->addSubview(view);
  machine->settle();
  window->contentView()->addSubview(view);
  machine->settle();
  EXPECT_THAT(record().surfaces, ElementsAre(false, true, false));

  const auto foreign = machine->views().addForeign({{0, 0}, {200, 100}}, false);
  const auto inForeign = NSWindow::makeInForeignWindow(foreign->number);
  inForeign->contentView()->addSubview(view);
  EXPECT_EQ(links().running, 0) << "it is not mapped";
  foreign->set({{0, 0}, {200, 100}}, true);
  EXPECT_EQ(links().running, 1);
  foreign->set({{0, 0}, {200, 100}}, false);
  view->subviews()[0]->setHidden(true);
  foreign->set({{0, 0}, {200, 100}}, true);
  const auto started = lines(" started display link");
  view->subviews()[0]->setHidden(false);
  EXPECT_EQ(lines(" started display link"), started + 1);
  foreign->vanish();
  EXPECT_EQ(links().running, 0);
}

TEST_F(MetalViews, sayWhatIsWrongWithAThread) {
  std::thread([&] { view->setImageBuffer(buffer); }).join();
  EXPECT_EQ(lines(" must not update image buffer not on the main thread"), 1);
}

using MetalViewsDeathTest = MetalViews;

TEST_F(MetalViewsDeathTest, endTheProcessWhereNothingCanBeSetUp) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto fails = [&](const std::function<void(MetalRecord&)>& fault, const std::string& text) {
    EXPECT_DEATH(
        {
          fault(record());
          show();
          view->setImageBuffer(buffer);
          setImage(1);
          draws();
        },
        text);
  };
  fails([](MetalRecord& record) { record.hasNoQueue = true; }, "creating command queue failed");
  fails([](MetalRecord& record) { record.hasNoCache = true; }, "creating texture cache failed");
  fails([](MetalRecord& record) { record.hasNoLibrary = true; }, "load library failed: no library");
  fails([](MetalRecord& record) { record.missingFunction = "renderVertex"; },
        "creating render pipeline failed: no function");
  fails([](MetalRecord& record) { record.hasNoBuffer = true; }, "creating vertex buffer failed");
  fails([](MetalRecord& record) { record.hasNoEncoder = true; },
        "RenderView:Metal:[0-9]+. encode render pipeline failed");
  EXPECT_DEATH(links().result = kCVReturnInvalidArgument; show(), ".DisplayLink. create failed");
}

}  // namespace
}  // namespace QelUtilVideo
