#include "platform/linux/egl/EglOpenGL.h"
#include "render/opengl/Blur.h"
#include "support/simulated/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace QelUtilVideo {
namespace {

TEST(EglBlur, isTurnedOnAndOffAndChangedAThousandTimesWithoutAnError) {
  EglOpenGL openGL([](const std::string& text) { ADD_FAILURE() << text; });
  const auto context = openGL.makeContext({}, nullptr);
  if (!context) GTEST_SKIP() << "This machine has no OpenGL driver";
  const LogCapture log;
  const ContextLock lock(context->cglContextObj());
  context->setSurfaceSize({24, 16});
  ASSERT_TRUE(context->makeCurrentContext());
  opengl::Blur blur(opengl::GL(openGL, "[T]"));
  blur.prepare();
  std::ptrdiff_t setUps = 0;
  for (int turn = 0; turn < 1000; ++turn) {
    // Off every other time, and the kernels of three strengths, which the driver knows again.
    const float radius = turn % 2 == 0 ? 0 : static_cast<float>(turn / 2 % 3 + 1) * 0.1F;
    const opengl::Blur::Size size = turn < 500 ? opengl::Blur::Size{24, 16} : opengl::Blur::Size{18, 22};
    const auto [active, changed] = blur.update(radius, size);
    EXPECT_EQ(active, radius > 0);
    EXPECT_TRUE(changed);
    if (!active) continue;
    ++setUps;
    openGL.functions().glBindFramebuffer(GL_FRAMEBUFFER, blur.framebuffer(1));
    EXPECT_TRUE(blur.vertBlur().use());
    blur.vertBlur().draw();
  }
  blur.release();
  EXPECT_EQ(openGL.functions().glGetError(), GLenum{GL_NO_ERROR});
  EXPECT_EQ(std::ssize(log.messages(LogLevel::info)), setUps);
  EXPECT_THAT(log.messages(LogLevel::error), testing::IsEmpty());
}

}  // namespace
}  // namespace QelUtilVideo
