#include <QelUtilVideo/platform/MainLoop.h>

#include "platform/Dispatch.h"
#include "platform/Root.h"

namespace QelUtilVideo {

MainLoop& MainLoop::main() { return Root::current().platform().dispatch().mainLoop(); }

}  // namespace QelUtilVideo
