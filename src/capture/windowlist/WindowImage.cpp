#include "capture/windowlist/WindowImage.h"

#include "platform/Platform.h"

namespace QelUtilVideo::windowlist {

std::shared_ptr<CGImage> windowImage(Platform& platform, CGWindowID windowID) {
  return platform.windowServer().CGWindowListCreateImage(
      CGRectNull, kCGWindowListOptionIncludingWindow, windowID,
      kCGWindowImageBoundsIgnoreFraming | kCGWindowImageShouldBeOpaque | kCGWindowImageBestResolution);
}

}  // namespace QelUtilVideo::windowlist
