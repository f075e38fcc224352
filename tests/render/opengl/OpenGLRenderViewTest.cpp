#include "render/RenderStage.h"
#include "render/opengl/OpenGLLayer.h"

#include <QelUtilVideo/RenderViewDelegate.h>
#include <QelUtilVideo/platform/NSColor.h>

#include <map>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct OpenGLRenderViewTest : RenderStage {
  void showFrame() {
    buffer->setImage(makeFrame(64, 48), 1);
    showAndSettle();
  }
  std::shared_ptr<NSView> backend() { return view->subviews().at(0); }
  std::shared_ptr<opengl::OpenGLLayer> layer() {
    return std::dynamic_pointer_cast<opengl::OpenGLLayer>(backend()->layer());
  }
  std::shared_ptr<SimulatedContext> context() { return machine->openGL().contexts().at(0); }
};

// ── When to draw ──────────────────────────────────────────────────────────────────────────────────

TEST_F(OpenGLRenderViewTest, eachReasonDrawsItsNumberOfRefreshesAndWithoutOneNoGLIsCalled) {
  EXPECT_EQ(draws(3), 0u);
  EXPECT_THAT(log.messages(), Not(Contains(HasSubstr("preparing"))));
  showFrame();
  EXPECT_EQ(draws(10), 0u);
  EXPECT_THAT(gl().allCalls(), IsEmpty());
  const std::vector<std::pair<std::function<void()>, std::size_t>> reasons{
      {[&] { view->setBackgroundColor(NSColor::deviceRGB(1, 0, 0)); }, 2},
      {[&] { view->setBlurRadius(0); }, 2},
      {[&] { view->setDeviceType(0); }, 2},
      {[&] { view->setFitInBounds(true); }, 2},
      {[&] { view->setAutomaticallyAdjustsFitMode(true); }, 2},
      {[&] { view->setAutomaticallyAdjustsFitMode(false); }, 0},
      {[&] { view->setRotateAnimationEnabled(true); }, 0},
      {[&] { view->setDataSource(buffer); }, 2},
      {[&] { buffer->setImage(makeFrame(64, 48), 2); }, 1},
      {[&] { view->setFrame(CGRectMake(0, 0, 320, 200)); }, 3}};
  for (const auto& [act, refreshes] : reasons) {
    act();
    gl().clear();
    EXPECT_EQ(draws(10), refreshes);
  }
  EXPECT_EQ(gl().count("glViewport(0,0,320,200)"), 3u);
  EXPECT_EQ(gl().count("glBufferData"), 1u);
  EXPECT_EQ(gl().count("glTex"), 0u);
}

TEST_F(OpenGLRenderViewTest, inOurOwnAndInAForeignWindowTheSameRefreshesDraw) {
  view->setAutoresizingMask(NSViewWidthSizable | NSViewHeightSizable);
  machine->displays().set({{.bounds = CGRectMake(0, 0, 1000, 1000)}});
  auto& windows = machine->views().windows;
  const std::uint32_t foreign = machine->views().addForeign(CGRectMake(0, 0, 200, 100), true)->number;
  for (const bool own : {false, true}) {
    const auto shown = own ? NSWindow::make({200, 100}, "Own") : NSWindow::makeInForeignWindow(foreign);
    shown->contentView()->addSubview(view);
    shown->orderFront();
    view->setFrame(shown->contentView()->bounds());
    showFrame();
    windows.back()->set(CGRectMake(5, 5, 300, 200), true);
    EXPECT_EQ(draws(10), 3u);
    EXPECT_EQ(gl().count("glViewport(0,0,300,200)"), 3u);
    view->setFitInBounds(!view->fitInBounds());
    EXPECT_EQ(draws(10), 2u);
    windows.back()->set(CGRectMake(50, 5, 300, 200), true);
    EXPECT_EQ(draws(10), 0u);

    windows.back()->surfaces.at(0)->expose();
    const int before = context()->presentationsAgain;
    EXPECT_EQ(draws(3), 0u);
    EXPECT_EQ(context()->presentationsAgain, before + 1);
    windows.back()->set(CGRectMake(50, 5, 300, 200), false);
    buffer->setImage(makeFrame(64, 48), 2);
    EXPECT_EQ(draws(3), 0u);
    view->removeFromSuperview();
  }
  EXPECT_THAT(log.messages(), Not(Contains(HasSubstr("finalized"))));
}

// ── Context ───────────────────────────────────────────────────────────────────────────────────────

TEST_F(OpenGLRenderViewTest, theLifeOfAViewIsToldInTheseLines) {
  showFrame();
  EXPECT_THAT(context()->format.attributes, ElementsAre(99, 0x3200, 11, 8, 8, 24, 73, 5, 96, 0));
  EXPECT_THAT(context()->values, ElementsAre(std::pair(1, 222)));
  view->removeFromSuperview();
  view.reset();
  EXPECT_THAT(log.messages(LogLevel::info),
              ElementsAre("[RenderView:OpenGL:1] init(frame:)", "[RenderView:OpenGL:1] layer init",
                          "[RenderView:OpenGL:1] created context",
                          "[RenderView:OpenGL:1] setDataSource " + buffer->description(),
                          "[RenderView:OpenGL:1] preparing", "[RenderView:OpenGL:1] finalized",
                          "[RenderView:OpenGL:1] deinit", "[RenderView:OpenGL:1] layer deinit"));
  EXPECT_THAT(log.messages(LogLevel::error), IsEmpty());
  EXPECT_EQ(gl().count("glDeleteProgram"), 3u);
}

TEST_F(OpenGLRenderViewTest, anotherContextIsPreparedFromNothingAndAnEqualOneIgnored) {
  showFrame();
  auto equal =
      std::make_shared<SimulatedContext>(context()->format, nullptr, gl(), std::make_shared<GLViolations>());
  equal->identity = context()->identity;
  layer()->setOpenGLContext(equal);
  EXPECT_EQ(layer()->openGLContext(), context());
  EXPECT_THAT(gl().calls(), IsEmpty());
  log.clear();
  layer()->setOpenGLContext(machine->openGL().makeContext(context()->format, nullptr));
  EXPECT_THAT(log.messages(), ElementsAre("[RenderView:OpenGL:1] finalized"));
  const std::map<std::string, std::size_t> released{{"Shader", 4},          {"Program", 3},
                                                    {"VertexArrays(1)", 3}, {"Buffers", 3},
                                                    {"Textures(2)", 2},     {"Framebuffers(2)", 1}};
  for (const auto& [kind, times] : released) EXPECT_EQ(gl().count("glDelete" + kind), times) << kind;
  gl().clear();
  EXPECT_EQ(draws(5), 2u) << "what the context before showed is not lost";
  EXPECT_EQ(gl().count("glTexImage2D"), 2u);
  EXPECT_EQ(gl().count("glBufferData"), 1u);

  context()->busy = true;
  log.clear();
  layer()->setOpenGLContext(nullptr);
  EXPECT_THAT(log.messages(), ElementsAre("[RenderView:OpenGL:1] finalized"));
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
  static_cast<void>(view->addContentSizeObserver([&](CGSize size) { observed.push_back(size); }));
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

TEST_F(OpenGLRenderViewTest, aReportMayFindNoRenderViewAnyMore) {
  const auto alone = backend();
  showFrame();
  EXPECT_EQ(view->contentSize(), (CGSize{64, 48}));
  window->contentView()->addSubview(alone);
  view->setDelegate(std::make_shared<RenderViewDelegate>());
  buffer->setImage(makeFrame(8, 6), 2);
  draws(2);
  machine->settle();
  EXPECT_EQ(view->contentSize(), (CGSize{64, 48}));
  buffer->setImage(makeFrame(10, 6), 3);
  draws(2);
  view->removeFromSuperview();
  view.reset();
  machine->settle();
  EXPECT_THAT(machine->systemLog().troubles(), IsEmpty());
}

}  // namespace
}  // namespace QelUtilVideo
