#pragma once

#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/X11Connection.h"

#include <xcb/damage.h>

#include <atomic>
#include <memory>

namespace QelUtilVideo {

/// Says whether what an X server shows has changed, and whether its monitors may have. One thread asks; the
/// events arrive with the replies to its other requests.
class ScreenChanges : public X11EventSink {
 public:
  [[nodiscard]] static std::shared_ptr<ScreenChanges> watch(const std::shared_ptr<X11Connection>& connection);

  /// Since the last call; true when nobody can tell.
  [[nodiscard]] bool takePixels(X11Connection& connection);
  /// Since the last call; true for the first one.
  [[nodiscard]] bool takeMonitors() { return haveMonitorsChanged_.exchange(false); }

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override;
  void handleLoss() override {}

 private:
  std::weak_ptr<X11Connection> connection_;
  EventSelection monitors_;
  xcb_damage_damage_t damage_ = XCB_NONE;  ///< none: the server cannot tell
  int firstDamageEvent_ = 0;
  std::atomic<bool> havePixelsChanged_{true};
  std::atomic<bool> haveMonitorsChanged_{true};
};

}  // namespace QelUtilVideo
