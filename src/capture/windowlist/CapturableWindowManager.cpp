#include "capture/windowlist/SharedWindowManager.h"
#include "platform/Root.h"

#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindowManager.h>

namespace QelUtilVideo {

const std::string& CapturableWindowManager::didRefreshNotification() {
  static const std::string name = "QelUtilVideoWindowManagerDidRefreshNotification";
  return name;
}

std::vector<std::shared_ptr<CapturableScreen>> CapturableWindowManager::screens() {
  return Root::current().get<windowlist::SharedWindowManager>().screens();
}

}  // namespace QelUtilVideo
