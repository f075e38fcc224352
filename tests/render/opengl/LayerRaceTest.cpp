#include "render/RenderStage.h"

#include <QelUtilVideo/RenderViewDelegate.h>

#include <thread>

namespace QelUtilVideo {
namespace {

struct LayerRaceTest : RenderStage {
  LayerRaceTest() { buffer->setImage(makeFrame(64, 48), 1), showAndSettle(); }
  NSView& backend() { return *view->subviews().at(0); }
  SimulatedContext& context() { return *machine->openGL().contexts().back(); }
  void loseContext() { context().lost = true, draws(3), machine->settle(); }
};

TEST_F(LayerRaceTest, aResizeWhileAPictureIsDrawnIsDrawnAfterwards) {
  struct Resizing : RenderViewDelegate {
    void renderViewWillRender(RenderView& view) override { view.setFrame(CGRectMake(0, 0, 320, 200)); }
  };
  const auto delegate = std::make_shared<Resizing>();
  view->setDelegate(delegate);
  buffer->setImage(makeFrame(64, 48), 2);
  EXPECT_EQ(draws(1), 1u);
  EXPECT_EQ(draws(10), 3u);
  EXPECT_EQ(context().copyPresentedImage()->width(), 320u);
}

TEST_F(LayerRaceTest, aLostContextIsReplacedOncePerLossAndThePictureDrawnAgain) {
  loseContext();
  EXPECT_EQ(draws(10), 2u);
  loseContext();
  loseContext();  // nothing was drawn in this one
  EXPECT_FALSE(context().cglContextObj());
  view->setHidden(true), view->setHidden(false);
  EXPECT_EQ(draws(10), 2u);
}

TEST_F(LayerRaceTest, whatCouldNotBeDrawnIsDrawnWhenTheContextCanBeHad) {
  context().busy = true;
  view->setFitInBounds(true);
  EXPECT_EQ(draws(10), 0u);
  context().busy = false;
  EXPECT_EQ(draws(10), 2u);
}

TEST_F(LayerRaceTest, aLayerThatIsTakenAwayGivesItsObjectsBackWhileItsThreadDraws) {
  std::thread drawing([this, old = std::dynamic_pointer_cast<NSOpenGLLayer>(backend().layer())] {
    for (int frame = 0; frame < 500; ++frame) buffer->setImage(makeFrame(8, 6), frame), old->refresh(0);
  });
  machine->openGL().refresh();
  backend().setWantsLayer(false);
  EXPECT_EQ(gl().count("glDeleteProgram"), 3u);
  backend().setWantsLayer(true);
  machine->openGL().refresh();
  drawing.join();
}

}  // namespace
}  // namespace QelUtilVideo
