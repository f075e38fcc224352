#include "platform/OpenGL.h"
#include "platform/linux/egl/EglOpenGL.h"
#include "support/WarmUp.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/NSCoder.h>
#include <QelUtilVideo/platform/NSColor.h>
#include <QelUtilVideo/platform/NSWindow.h>

#include <epoxy/egl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

namespace QelUtilVideo {
namespace {

/// Why EGL refuses contexts on the main thread, as where a host draws by GLX.
EGLint refusal = EGL_SUCCESS;
PFNEGLMAKECURRENTPROC makeCurrent;
PFNEGLGETERRORPROC getError;

bool isRefused() {
  static const auto mainThread = std::this_thread::get_id();
  return std::this_thread::get_id() == mainThread && refusal != EGL_SUCCESS;
}

const qeltest::WarmUp warmUp([] {
  if (!EglOpenGL(nullptr).makeContext({}, nullptr) || isRefused()) return;
  static_cast<void>(eglGetError());  // a function's first call would undo its script
  makeCurrent = std::exchange(epoxy_eglMakeCurrent, [](auto display, auto draw, auto read, auto context) {
    return context && isRefused() ? EGLBoolean{EGL_FALSE} : makeCurrent(display, draw, read, context);
  });
  getError = std::exchange(epoxy_eglGetError, [] { return isRefused() ? refusal : getError(); });
});

TEST(LayerFaults, aThreadThatTakesNoContextStillMakesOneAndReadsItBackAndOnlyALossIsForGood) {
  refusal = makeCurrent ? EGL_BAD_ACCESS : EGL_SUCCESS;
  const auto context = EglOpenGL(nullptr).makeContext({}, nullptr);
  if (!makeCurrent) GTEST_SKIP() << "This machine has no OpenGL driver";
  ASSERT_TRUE(context);
  const auto draw = [&] {
    const ContextLock lock(context->cglContextObj());
    return context->makeCurrentContext() && (context->flushBuffer(), true);
  };
  EXPECT_FALSE(draw());
  std::thread([&] { EXPECT_TRUE(draw()); }).join();
  EXPECT_TRUE(context->copyPresentedImage());
  for (const EGLint error : {EGL_BAD_ALLOC, EGL_SUCCESS, EGL_CONTEXT_LOST}) {
    EXPECT_TRUE(context->cglContextObj());
    refusal = error;
    EXPECT_EQ(draw(), error == EGL_SUCCESS);
  }
  refusal = EGL_SUCCESS;
  EXPECT_FALSE(context->cglContextObj());
}

TEST(LayerFaults, aTranslucentBackgroundIsMultipliedByItsAlphaOnceInAWindowsImage) {
  if (!EglOpenGL(nullptr).makeContext({}, nullptr)) GTEST_SKIP() << "This machine has no OpenGL driver";
  const auto window = NSWindow::makeOffscreen({4, 4});
  const auto view = RenderView::make(window->contentView()->bounds());
  view->setBackgroundColor(NSColor::deviceRGB(1, 0.5, 0, 0.25));
  window->contentView()->addSubview(view);
  CGImageRef image;
  for (int wait = 0; wait < 1000 && !image; ++wait, image = window->image()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(image);
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, image->dataProvider()->bytes()->data(), sizeof pixel);
  EXPECT_EQ(pixel, 0x40402000U);
}

TEST(LayerFaults, anArchiveThatThrowsHalfWayGivesNoView) {
  struct Broken final : NSCoder {
    std::optional<CGRect> decodeRect(std::string_view) override { return CGRectMake(0, 0, 5, 5); }
    bool decodeBool(std::string_view) override { throw 1; }
  } coder;
  EXPECT_EQ(RenderView::make(coder), nullptr);
}

}  // namespace
}  // namespace QelUtilVideo
