#include "render/RenderStage.h"
#include "render/opengl/OpenGLLayer.h"

#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSColor.h>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct OpenGLRenderViewTest : RenderStage {
  std::shared_ptr<NSView> backend() { return view->subviews().at(0); }
  std::shared_ptr<opengl::OpenGLLayer> layer() {
    return std::dynamic_pointer_cast<opengl::OpenGLLayer>(backend()->layer());
  }
  std::shared_ptr<SimulatedContext> context() { return machine->openGL().contexts().at(0); }
};

// ── When to draw ──────────────────────────────────────────────────────────────────────────────────

TEST_F(OpenGLRenderViewTest, nothingIsDrawnBeforeASettingOrAFrameAsksForIt) {
  EXPECT_EQ(draws(3), 0u);
  EXPECT_THAT(gl().calls(), IsEmpty());
  EXPECT_THAT(log.messages(), Not(Contains(HasSubstr("preparing"))));
}

TEST_F(OpenGLRenderViewTest, aSettingDrawsTwoRefreshes) {
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  const std::vector<std::function<void()>> settings{
      [&] { view->setBackgroundColor(NSColor::deviceRGB(1, 0, 0)); },
      [&] { view->setBlurRadius(0); },
      [&] { view->setDeviceType(0); },
      [&] { view->setFitInBounds(true); },
      [&] { view->setAutomaticallyAdjustsFitMode(true); },
      [&] { view->setDataSource(buffer); }};
  for (const auto& set : settings) {
    set();
    EXPECT_EQ(draws(10), 2u);
  }
  view->setAutomaticallyAdjustsFitMode(false);
  view->setRotateAnimationEnabled(true);
  EXPECT_EQ(draws(10), 0u);
}

TEST_F(OpenGLRenderViewTest, aResizeDrawsThreeRefreshes) {
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  view->setFrame(CGRectMake(0, 0, 320, 200));
  EXPECT_EQ(draws(10), 3u);
  EXPECT_EQ(gl().count("glViewport(0,0,320,200)"), 3u);
  EXPECT_EQ(gl().count("glBufferData"), 1u);
}

TEST_F(OpenGLRenderViewTest, aNewFrameDrawsOnceAndAnUnchangedOneCallsNoGL) {
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  EXPECT_EQ(draws(10), 0u);
  EXPECT_THAT(gl().allCalls(), IsEmpty());
  buffer->setImage(makeFrame(64, 48), 2);
  EXPECT_EQ(draws(10), 1u);
}

TEST_F(OpenGLRenderViewTest, everyRefreshDrawsWhileTheRotationRuns) {
  view->setRotateAnimationEnabled(true);
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  buffer->setImage(makeFrame(64, 48), 2, CGImagePropertyOrientation::right);
  std::size_t drawn = 0;
  for (int refresh = 0; refresh < 30; ++refresh) {
    drawn += draws(1);
    machine->advance(1.0 / 60);
  }
  // The frame itself, nine steps of a quarter turn, and the one that ends it.
  EXPECT_NEAR(static_cast<double>(drawn), 11, 1);
  EXPECT_EQ(gl().count("glTexSubImage2D"), 2u);
  EXPECT_EQ(gl().count("glBufferData"), drawn);
}

// ── Context ───────────────────────────────────────────────────────────────────────────────────────

TEST_F(OpenGLRenderViewTest, theLifeOfAViewIsToldInTheseLines) {
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  view->removeFromSuperview();
  view.reset();
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[RenderView:OpenGL:1] init(frame:)", "[RenderView:OpenGL:1] layer init",
                          "[RenderView:OpenGL:1] created context",
                          "[RenderView:OpenGL:1] setDataSource " + buffer->description(),
                          "[RenderView:OpenGL:1] preparing", "[RenderView:OpenGL:1] finalized",
                          "[RenderView:OpenGL:1] deinit", "[RenderView:OpenGL:1] layer deinit"));
  EXPECT_THAT(log.messages(LogLevel::error), IsEmpty());
  EXPECT_EQ(gl().count("glDeleteProgram"), 1u);
}

TEST_F(OpenGLRenderViewTest, theContextIsAskedForAsTheBackendNeedsIt) {
  EXPECT_THAT(context()->format.attributes, ElementsAre(99, 0x3200, 11, 8, 8, 24, 73, 5, 96, 0));
  EXPECT_THAT(context()->values, ElementsAre(std::pair(1, 222)));
}

TEST_F(OpenGLRenderViewTest, anotherContextIsPreparedFromNothingAndAnEqualOneIgnored) {
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  auto equal = std::make_shared<SimulatedContext>(context()->format, gl(), std::make_shared<GLViolations>());
  equal->identity = context()->identity;
  layer()->setOpenGLContext(equal);
  EXPECT_EQ(layer()->openGLContext(), context());
  EXPECT_THAT(gl().calls(), IsEmpty());

  log.clear();
  layer()->setOpenGLContext(machine->openGL().makeContext(context()->format));
  EXPECT_THAT(log.messages(), ElementsAre("[RenderView:OpenGL:1] finalized"));
  EXPECT_THAT(gl().calls(), ElementsAre("glDetachShader(5,3)", "glDetachShader(5,4)", "glDeleteShader(3)",
                                        "glDeleteShader(4)", "glDeleteProgram(5)", "glDeleteVertexArrays(1)",
                                        "glDeleteBuffers(1)", "glDeleteTextures(2)"));
  gl().clear();
  view->setBlurRadius(0);
  EXPECT_EQ(draws(5), 2u);
  EXPECT_EQ(gl().count("glTexImage2D"), 2u);
  EXPECT_EQ(gl().count("glTexSubImage2D"), 0u);
  EXPECT_EQ(gl().count("glBufferData"), 1u);
  EXPECT_EQ(gl().count("glUniformMatrix4fv"), 1u);
}

TEST_F(OpenGLRenderViewTest, aLostOrMissingContextSkipsTheDrawAndALaterRefreshTriesAgain) {
  buffer->setImage(makeFrame(64, 48), 1);
  context()->lost = true;
  view->setImageBuffer(buffer);
  EXPECT_EQ(draws(3), 0u);
  backend()->drawRect(backend()->bounds());
  context()->lost = false;
  EXPECT_GT(draws(1), 0u);
  layer()->setOpenGLContext(nullptr);
  EXPECT_EQ(layer()->openGLContext(), nullptr);
  EXPECT_EQ(draws(3), 0u);
  backend()->drawRect(backend()->bounds());
  EXPECT_THAT(log.messages(LogLevel::error), IsEmpty());
}

// ── Content size ──────────────────────────────────────────────────────────────────────────────────

TEST_F(OpenGLRenderViewTest, theTurnedSizeReachesTheRenderViewOnTheMainQueueOncePerChange) {
  std::vector<CGSize> observed;
  view->observeContentSize([&](CGSize size) { observed.push_back(size); });
  buffer->setImage(makeFrame(64, 48), 1, CGImagePropertyOrientation::left);
  view->setImageBuffer(buffer);
  draws(4);
  EXPECT_EQ(view->contentSize(), (CGSize{0, 0}));
  machine->settle();
  EXPECT_THAT(observed, ElementsAre(CGSize{48, 64}));
  view->setImageBuffer(nullptr);
  draws(4);
  machine->settle();
  EXPECT_THAT(observed, ElementsAre(CGSize{48, 64}, CGSize{0, 0}));
}

TEST_F(OpenGLRenderViewTest, aBackendThatLiesInNoRenderViewReportsToNobody) {
  const auto alone = backend();
  window->contentView()->addSubview(alone);
  view->setDelegate(std::make_shared<RenderViewDelegate>());
  buffer->setImage(makeFrame(64, 48), 1);
  showAndSettle();
  EXPECT_EQ(view->contentSize(), (CGSize{0, 0}));
}

TEST_F(OpenGLRenderViewTest, aViewMayGoBeforeItsReportArrives) {
  buffer->setImage(makeFrame(64, 48), 1);
  view->setImageBuffer(buffer);
  draws(2);
  view->removeFromSuperview();
  view.reset();
  machine->settle();
  EXPECT_THAT(machine->systemLog().troubles(), IsEmpty());
}

}  // namespace
}  // namespace QelUtilVideo
