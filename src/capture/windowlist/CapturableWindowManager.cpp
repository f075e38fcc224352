#include "capture/windowlist/OverlayRegistration.h"
#include "capture/windowlist/SharedWindowManager.h"
#include "platform/Root.h"

#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>
#include <QelUtilVideo/CapturableWindowManager.h>

namespace QelUtilVideo {

const std::string& CapturableWindowManager::didRefreshNotification() {
  static const std::string name = "QelUtilVideoWindowManagerDidRefreshNotification";
  return name;
}

std::vector<std::shared_ptr<CapturableScreen>> CapturableWindowManager::screens() {
  return Root::current().get<windowlist::SharedWindowManager>().screens();
}

std::vector<std::shared_ptr<CapturableWindow>> CapturableWindowManager::windows() {
  return Root::current().get<windowlist::SharedWindowManager>().windows();
}

void CapturableWindowManager::setOverlay(std::int64_t windowLevel, std::int32_t processIdentifier) {
  Root::current().get<windowlist::OverlayRegistration>().set(windowLevel, processIdentifier);
}

void CapturableWindowManager::clearOverlay() {
  Root::current().get<windowlist::OverlayRegistration>().clear();
}

}  // namespace QelUtilVideo
