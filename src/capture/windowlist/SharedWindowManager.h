#pragma once

#include "capture/windowlist/ScreenTargets.h"
#include "capture/windowlist/WindowTargets.h"

#include <QelUtilVideo/platform/NSScreen.h>
#include <QelUtilVideo/platform/NotificationCenter.h>

#include <memory>
#include <vector>

namespace QelUtilVideo {

class CapturableScreen;
class CapturableWindow;
class DispatchQueue;
class Root;

namespace windowlist {

/// The one instance behind the class-level operations of `CapturableWindowManager`. Its lists are read
/// and changed in blocks on its queue only; those blocks also log. Any thread.
class SharedWindowManager {
 public:
  explicit SharedWindowManager(Root& root);
  SharedWindowManager(const SharedWindowManager&) = delete;
  SharedWindowManager& operator=(const SharedWindowManager&) = delete;

  // The first call of either lists the displays and follows their changes from then on. The constructor does
  // not: listing logs, and a sink that asks for a list would wait for the object that is being made.

  [[nodiscard]] std::vector<std::shared_ptr<CapturableScreen>> screens();
  /// Lists the windows anew.
  [[nodiscard]] std::vector<std::shared_ptr<CapturableWindow>> windows();

  /// The display arrangement changed: refreshes the list and posts what came and went, if anything did,
  /// on the calling thread.
  void updateScreens(const NSNotification& notification);

 private:
  void listFirst();  ///< on the queue
  /// What came and went, as notifications carry it.
  Dictionary refreshScreens();
  /// On the queue.
  void refreshWindows();
  [[nodiscard]] std::vector<CGDirectDisplayID> listedDisplays() const;  ///< on the queue
  void updateGeometry(const std::vector<CGDirectDisplayID>& displays);

  Root& root_;
  const std::shared_ptr<DispatchQueue> queue_;
  bool isListed_ = false;
  ScreenTargets screens_;
  WindowTargets windows_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
