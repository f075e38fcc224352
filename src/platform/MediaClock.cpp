#include <QelUtilVideo/platform/MediaClock.h>

#include "platform/Clock.h"
#include "platform/Root.h"

namespace QelUtilVideo {

double CACurrentMediaTime() { return Root::current().platform().clock().CACurrentMediaTime(); }

}  // namespace QelUtilVideo
