#include "capture/windowlist/SharedWindowManager.h"

#include "capture/windowlist/Screen.h"
#include "platform/Dispatch.h"
#include "platform/Displays.h"
#include "platform/Platform.h"
#include "platform/Root.h"

#include <QelUtilVideo/CapturableWindowManager.h>

#include <utility>

namespace QelUtilVideo::windowlist {

SharedWindowManager::SharedWindowManager(Root& root)
    : root_(root),
      queue_(root.platform().dispatch().makeQueue("QelUtilVideo.CapturableWindow.ManagerQueue")) {}

std::vector<std::shared_ptr<CapturableScreen>> SharedWindowManager::screens() {
  std::vector<std::shared_ptr<CapturableScreen>> copy;
  queue_->sync([&] {
    if (!std::exchange(isListed_, true)) listFirst();
    copy.assign(screens_.begin(), screens_.end());
  });
  return copy;
}

void SharedWindowManager::listFirst() {
  // A change that comes while the displays are listed waits for the queue, and is not missed.
  root_.platform().notificationCenter().addObserver(
      NSApplicationDidChangeScreenParametersNotification, nullptr,
      [this](const NSNotification& notification) { updateScreens(notification); });
  (void)updateScreenList();
  std::vector<CGDirectDisplayID> displays;
  for (const auto& screen : screens_) displays.push_back(screen->displayID());
  updateGeometry(displays);
}

void SharedWindowManager::updateScreens(const NSNotification& /*notification*/) {
  Dictionary change = refreshScreens();
  if (change.empty()) return;
  root_.platform().notificationCenter().postNotificationName(
      CapturableWindowManager::didRefreshNotification(), nullptr, std::move(change));
}

}  // namespace QelUtilVideo::windowlist
