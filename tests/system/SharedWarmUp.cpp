#include "support/WarmUp.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/platform/MainLoop.h>

namespace QelUtilVideo {
namespace {

// The dispatcher and the system log keep what they have opened until the process ends.
const qeltest::WarmUp warmUp([] {
  static_cast<void>(RenderView::make(CGRectMake(0, 0, 8, 8)));
  MainLoop::main().dispatchPending();
});

}  // namespace
}  // namespace QelUtilVideo
