#include "platform/OpenGL.h"
#include "platform/linux/egl/EglOpenGL.h"
#include "support/WarmUp.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/NSCoder.h>

#include <epoxy/egl.h>
#include <gtest/gtest.h>

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

TEST(LayerFaults, anArchiveThatThrowsHalfWayGivesNoView) {
  struct Broken final : NSCoder {
    std::optional<CGRect> decodeRect(std::string_view) override { return CGRectMake(0, 0, 5, 5); }
    bool decodeBool(std::string_view) override { throw 1; }
  } coder;
  EXPECT_EQ(RenderView::make(coder), nullptr);
}

}  // namespace
}  // namespace QelUtilVideo
