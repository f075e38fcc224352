#include "capture/windowlist/SharedWindowManager.h"

#include "capture/windowlist/DisplayGeometry.h"
#include "capture/windowlist/Screen.h"
#include "capture/windowlist/Window.h"
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
    listFirst();
    copy.assign(screens_.list().begin(), screens_.list().end());
  });
  return copy;
}

std::vector<std::shared_ptr<CapturableWindow>> SharedWindowManager::windows() {
  std::vector<std::shared_ptr<CapturableWindow>> copy;
  queue_->sync([&] {
    listFirst();
    refreshWindows();
    copy.assign(windows_.list().begin(), windows_.list().end());
  });
  return copy;
}

void SharedWindowManager::listFirst() {
  if (std::exchange(isListed_, true)) return;
  // A change that comes while the displays are listed waits for the queue, and is not missed.
  root_.platform().notificationCenter().addObserver(
      NSApplicationDidChangeScreenParametersNotification, nullptr,
      [this](const NSNotification& notification) { updateScreens(notification); });
  (void)screens_.update(root_.platform());
  updateGeometry(listedDisplays());
}

void SharedWindowManager::updateScreens(const NSNotification& /*notification*/) {
  Dictionary change = refreshScreens();
  if (change.empty()) return;
  root_.platform().notificationCenter().postNotificationName(
      CapturableWindowManager::didRefreshNotification(), nullptr, std::move(change));
}

Dictionary SharedWindowManager::refreshScreens() {
  Dictionary change;
  std::vector<CGDirectDisplayID> displays;
  queue_->sync([&] {
    change = screens_.update(root_.platform());
    displays = listedDisplays();
  });
  updateGeometry(displays);
  return change;
}

void SharedWindowManager::refreshWindows() { windows_.update(root_); }

std::vector<CGDirectDisplayID> SharedWindowManager::listedDisplays() const {
  std::vector<CGDirectDisplayID> displays;
  for (const auto& screen : screens_.list()) displays.push_back(screen->displayID());
  return displays;
}

void SharedWindowManager::updateGeometry(const std::vector<CGDirectDisplayID>& displays) {
  std::vector<CGRect> bounds;
  for (const CGDirectDisplayID display : displays) {
    bounds.push_back(root_.platform().displays().CGDisplayBounds(display));
  }
  root_.get<CurrentDisplayGeometry>().set(makeDisplayGeometry(std::move(bounds)));
}

}  // namespace QelUtilVideo::windowlist
