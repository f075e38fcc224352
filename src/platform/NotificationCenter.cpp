#include <QelUtilVideo/platform/NotificationCenter.h>

#include "platform/Root.h"

namespace QelUtilVideo {

NotificationCenter& NotificationCenter::defaultCenter() {
  return Root::current().platform().notificationCenter();
}

}  // namespace QelUtilVideo
