#include "render/metal/RenderLoop.h"

#include "log/Log.h"
#include "render/metal/DisplayLink.h"

namespace QelUtilVideo::metal {

void RenderLoop::start() {
  DisplayLink::shared().addRenderLoop(shared_from_this());
  log(LogLevel::info, logName_ + " started display link");
}

void RenderLoop::stop() {
  DisplayLink::shared().removeRenderLoop(*this);
  log(LogLevel::info, logName_ + " stopped display link");
}

void RenderLoop::invalidate() {
  DisplayLink::shared().removeRenderLoop(*this);
  log(LogLevel::info, logName_ + " invalidated display link");
}

}  // namespace QelUtilVideo::metal
