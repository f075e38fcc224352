#include "platform/NSOpenGLLayer.h"
#include "platform/OpenGLFunctions.h"
#include "platform/Synchronised.h"
#include "platform/linux/egl/EglOpenGL.h"
#include "support/WarmUp.h"

#include <QelUtilVideo/platform/NSView.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <thread>
#include <vector>

namespace QelUtilVideo {
namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;

// A driver keeps what it has opened until the process ends.
const qeltest::WarmUp warmUp([] { (void)EglOpenGL([](const std::string&) {}).makeContext({}, nullptr); });

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

/// The pixel as 0xAARRGGBB; `x` and `y` count from the top-left corner.
std::uint32_t pixelAt(const CGImage& image, std::size_t x, std::size_t y) {
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, image.dataProvider()->bytes()->data() + y * image.layout().bytesPerRow + x * 4, 4);
  return pixel;
}

/// Fills itself with one colour.
class PlainView : public NSView {
 public:
  PlainView(OpenGL& openGL, CGRect frame, std::array<float, 4> color)
      : NSView(frame), openGL_(openGL), color_(color) {}

  std::shared_ptr<CALayer> makeBackingLayer() override {
    auto made = std::make_shared<Layer>(*this);
    made->setAsynchronous(true);
    return made;
  }

  void drawRect(CGRect) override {
    OpenGLFunctions& gl = openGL_.functions();
    const auto context = std::static_pointer_cast<NSOpenGLLayer>(layer())->openGLContext();
    context->makeCurrentContext();
    gl.glClearColor(color_[0], color_[1], color_[2], color_[3]);
    gl.glClear(GL_COLOR_BUFFER_BIT);
    context->flushBuffer();
    lastError = gl.glGetError();
    drawn += 1;
    if (afterDrawing) afterDrawing();
  }

  /// Those of the refreshes so far.
  Synchronised<std::vector<double>> displayTimes;
  std::atomic<GLenum> lastError = GL_NO_ERROR;
  std::atomic<int> drawn = 0;
  std::function<void()> afterDrawing;

 private:
  class Layer : public NSOpenGLLayer {
   public:
    explicit Layer(PlainView& view) : NSOpenGLLayer(view.openGL_), view_(view) {}
    bool canDrawInOpenGLContext(NSOpenGLContext&, double displayTime) override {
      view_.displayTimes.with([&](auto& times) { times.push_back(displayTime); });
      return true;
    }

   private:
    PlainView& view_;
  };

  OpenGL& openGL_;
  std::array<float, 4> color_;
};

class EglLayers : public testing::Test {
 protected:
  void SetUp() override {
    if (!openGL.makeContext({}, nullptr)) GTEST_SKIP() << "This machine has no OpenGL driver";
  }

  ~EglLayers() override {
    // A draw that has begun outlasts the view's place in the window.
    window.reset();
    eventually([&] { return std::ranges::all_of(views, [](const auto& view) { return view.expired(); }); });
  }

  Synchronised<std::vector<std::string>> troubles;
  EglOpenGL openGL{
      [this](const std::string& text) { troubles.with([&](auto& texts) { texts.push_back(text); }); }};
  std::shared_ptr<NSWindow> window = NSWindow::makeOffscreen({40, 20});

  std::shared_ptr<PlainView> addView(CGRect frame, std::array<float, 4> color,
                                     std::function<void()> afterDrawing = nullptr) {
    auto view = std::make_shared<PlainView>(openGL, frame, color);
    view->afterDrawing = std::move(afterDrawing);
    view->setWantsLayer(true);
    view->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
    window->contentView()->addSubview(view);
    views.push_back(view);
    return view;
  }

 private:
  std::vector<std::weak_ptr<NSView>> views;
};

constexpr std::array<float, 4> translucentGreen{0, 0.4F, 0, 0.4F};
constexpr std::array<float, 4> blue{0, 0, 1, 1};

TEST_F(EglLayers, surfaceFollowsTheViewsSize) {
  const auto view = addView(window->contentView()->bounds(), blue);
  for (const CGSize size : {CGSize{131, 77}, CGSize{3, 5}, CGSize{64, 64}}) {
    window->setContentSize(size);
    ASSERT_TRUE(eventually([&] {
      const auto shown = view->layer()->contents();
      return shown && static_cast<double>(shown->width()) == size.width &&
             static_cast<double>(shown->height()) == size.height;
    }));
    const auto image = window->image();
    EXPECT_EQ(pixelAt(*image, 0, 0), 0xFF0000FFU);
    EXPECT_EQ(pixelAt(*image, image->width() - 1, image->height() - 1), 0xFF0000FFU);
    EXPECT_EQ(view->lastError, GL_NO_ERROR);
  }
}

TEST_F(EglLayers, refreshesArePacedAndEndWhenTheViewIsHidden) {
  const auto start = std::chrono::steady_clock::now();
  const auto view = addView(window->contentView()->bounds(), blue);
  ASSERT_TRUE(eventually([&] { return view->drawn >= 30; }));
  EXPECT_GE(std::chrono::steady_clock::now() - start, 29 * 16ms);

  view->setHidden(true);
  std::this_thread::sleep_for(30ms);
  const int drawn = view->drawn;
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(view->drawn, drawn);
  view->setHidden(false);
  EXPECT_TRUE(eventually([&] { return view->drawn > drawn; }));
}

TEST_F(EglLayers, aRefreshRateCountsAtOnceAndItsRefreshesLieOnOneBeat) {
  const auto view = addView(window->contentView()->bounds(), blue);
  view->setWantsLayer(true);
  const auto layer = std::static_pointer_cast<NSOpenGLLayer>(view->layer());
  // A layer that does not drive itself.
  layer->setAsynchronous(false);
  const auto timesAfter = [&](int refreshes) {
    view->displayTimes.with([](auto& times) { times.clear(); });
    const auto times = [&] { return view->displayTimes.copy(); };
    EXPECT_TRUE(eventually([&] { return times().size() >= static_cast<std::size_t>(refreshes); }));
    return times();
  };
  // At least one refresh per second.
  const auto driver = openGL.makeLayerDriver(layer, 1e-9);
  timesAfter(2);
  struct Rate {
    double asked, kept;
  };
  for (const Rate rate : {Rate{100, 100}, Rate{1e9, 1000}, Rate{-1, 60}, Rate{std::nan(""), 60}}) {
    driver->setRefreshRate(rate.asked);
    timesAfter(1);  // the one that was under way
    const auto times = timesAfter(20);
    for (std::size_t i = 1; i < times.size(); ++i) {
      const double periods = (times[i] - times[i - 1]) * rate.kept;
      EXPECT_GT(periods, 0.5);
      EXPECT_NEAR(periods, std::round(periods), 1e-3) << rate.asked;
    }
  }
}

TEST_F(EglLayers, twoLayersDrawOnTwoThreads) {
  const auto left = addView(CGRectMake(0, 0, 20, 20), translucentGreen);
  const auto right = addView(CGRectMake(20, 0, 20, 20), blue);
  ASSERT_TRUE(eventually([&] { return left->drawn >= 10 && right->drawn >= 10; }));
  const auto image = window->image();
  EXPECT_EQ(pixelAt(*image, 15, 15), 0x66002900U);
  EXPECT_EQ(pixelAt(*image, 35, 15), 0xFF0000FFU);
}

TEST_F(EglLayers, lastReferenceMayGoOnTheDrawingThread) {
  std::atomic<bool> released = false;
  // Until the main thread has let go, the drawing thread's own reference is not the last.
  auto view =
      addView(window->contentView()->bounds(), blue, [&] { eventually([&] { return released.load(); }); });
  const std::weak_ptr<NSView> watched = view;
  const std::weak_ptr<CALayer> watchedLayer = view->layer();
  ASSERT_TRUE(eventually([&] { return view->drawn > 0; }));
  view->removeFromSuperview();
  view.reset();
  released = true;
  EXPECT_TRUE(eventually([&] { return watched.expired() && watchedLayer.expired(); }));
}

TEST_F(EglLayers, aContextBelongsToWhoeverHoldsTheLock) {
  const auto context = openGL.makeContext({}, nullptr);
  OpenGLFunctions& gl = openGL.functions();
  const auto framebuffer = [&] {
    GLint name = 0;
    gl.glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &name);
    return name;
  };
  const auto useIt = [&] {
    CGLLockContext(context->cglContextObj());
    context->makeCurrentContext();
    EXPECT_NE(framebuffer(), 0);
    CGLUnlockContext(context->cglContextObj());
    EXPECT_EQ(framebuffer(), 0);
  };
  useIt();
  std::thread(useIt).join();
  context->makeCurrentContext();  // without the lock: refused
  EXPECT_EQ(framebuffer(), 0);
  EXPECT_THAT(troubles.copy(), IsEmpty());
}

TEST_F(EglLayers, usingOneContextLeavesAnotherOfTheThreadAsItWas) {
  const auto outer = openGL.makeContext({}, nullptr), inner = openGL.makeContext({}, nullptr);
  OpenGLFunctions& gl = openGL.functions();
  CGLLockContext(outer->cglContextObj());
  outer->makeCurrentContext();
  gl.glClearColor(0.25F, 0, 0, 1);

  CGLLockContext(inner->cglContextObj());
  inner->setSurfaceSize({1e9, -3});
  inner->makeCurrentContext();
  gl.glClearColor(0, 1, 0, 1);
  gl.glClear(GL_COLOR_BUFFER_BIT);
  inner->flushBuffer();
  CGLUnlockContext(inner->cglContextObj());
  const auto picture = inner->copyPresentedImage();
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->height(), 1U);
  EXPECT_EQ(pixelAt(*picture, picture->width() - 1, 0), 0xFF00FF00U);

  gl.glClear(GL_COLOR_BUFFER_BIT);
  outer->flushBuffer();
  EXPECT_EQ(gl.glGetError(), GL_NO_ERROR);
  CGLUnlockContext(outer->cglContextObj());
  EXPECT_EQ(pixelAt(*outer->copyPresentedImage(), 0, 0), 0xFF400000U);
}

}  // namespace
}  // namespace QelUtilVideo
