#include "support/WarmUp.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/MainLoop.h>

#include <cstdlib>

namespace QelUtilVideo {
namespace {

// The dispatcher and the system log keep what they have opened until the process ends. OpenGL draws: what
// it keeps can be told from what we do.
const qeltest::WarmUp warmUp([] {
  ::setenv("QelUtilVideoRenderViewMetalDisabled", "1", 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
  static_cast<void>(RenderView::make(CGRectMake(0, 0, 8, 8)));
  MainLoop::main().dispatchPending();
});

}  // namespace
}  // namespace QelUtilVideo
