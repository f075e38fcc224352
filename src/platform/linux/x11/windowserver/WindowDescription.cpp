#include "platform/linux/x11/windowserver/WindowDescription.h"

#include "platform/WindowServer.h"

namespace QelUtilVideo {

Dictionary windowDescription(const WindowRecord& window) {
  const PixelRect& bounds = window.bounds;
  Dictionary description{{kCGWindowNumber, std::uint32_t{window.window}},
                         {kCGWindowOwnerPID, window.processIdentifier},
                         {kCGWindowOwnerName, window.ownerName},
                         {kCGWindowLayer, window.layer},
                         {kCGWindowAlpha, window.alpha},
                         {kCGWindowBounds, CGRectCreateDictionaryRepresentation(
                                               CGRectMake(bounds.x, bounds.y, bounds.width, bounds.height))},
                         {kCGWindowIsOnscreen, window.isOnScreen}};
  if (window.name) description.set(kCGWindowName, *window.name);
  return description;
}

}  // namespace QelUtilVideo
