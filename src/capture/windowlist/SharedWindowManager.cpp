#include "capture/windowlist/SharedWindowManager.h"

#include "capture/windowlist/Screen.h"
#include "platform/Dispatch.h"
#include "platform/Displays.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <QelUtilVideo/CapturableWindowManager.h>

namespace QelUtilVideo::windowlist {

SharedWindowManager::SharedWindowManager(Root& root)
    : root_(root),
      queue_(root.platform().dispatch().makeQueue("QelUtilVideo.CapturableWindow.ManagerQueue")) {
  refreshScreens();
  root.platform().notificationCenter().addObserver(
      NSApplicationDidChangeScreenParametersNotification, nullptr,
      [this](const NSNotification& notification) { updateScreens(notification); });
}

std::vector<std::shared_ptr<CapturableScreen>> SharedWindowManager::screens() {
  std::vector<std::shared_ptr<CapturableScreen>> copy;
  queue_->sync([&] { copy.assign(screens_.begin(), screens_.end()); });
  return copy;
}

void SharedWindowManager::updateScreens(const NSNotification& /*notification*/) {
  Dictionary change = refreshScreens();
  if (change.empty()) return;
  root_.platform().notificationCenter().postNotificationName(
      CapturableWindowManager::didRefreshNotification(), nullptr, std::move(change));
}

}  // namespace QelUtilVideo::windowlist
