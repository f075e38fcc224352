#include "platform/linux/x11/ScreenChanges.h"

#include "platform/linux/x11/Monitors.h"

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

bool knowsDamage(const Use& use) {
  const xcb_query_extension_reply_t* extension = xcb_get_extension_data(use, &xcb_damage_id);
  if (!extension || !extension->present) return false;
  return use.reply(xcb_damage_query_version(use, 1, 1), xcb_damage_query_version_reply) != nullptr;
}

}  // namespace

std::shared_ptr<ScreenChanges> ScreenChanges::watch(const std::shared_ptr<X11Connection>& connection) {
  auto changes = std::make_shared<ScreenChanges>();
  changes->connection_ = connection;
  {
    const Use use(*connection);
    if (knowsDamage(use)) {
      changes->firstDamageEvent_ = xcb_get_extension_data(use, &xcb_damage_id)->first_event;
      changes->damage_ = xcb_generate_id(use);
      xcb_damage_create(use, changes->damage_, connection->root(), XCB_DAMAGE_REPORT_LEVEL_NON_EMPTY);
    }
  }
  connection->addSink(changes);
  changes->monitors_ = watchMonitors(connection);
  return changes;
}

bool ScreenChanges::takePixels(X11Connection& connection) {
  if (damage_ == XCB_NONE) return true;
  if (!havePixelsChanged_.exchange(false)) return false;
  // Before the pixels are asked for: what changes afterwards is told anew.
  const Use use(connection);
  xcb_damage_subtract(use, damage_, XCB_NONE, XCB_NONE);
  return true;
}

void ScreenChanges::handleEvent(const xcb_generic_event_t& event) {
  const int type = event.response_type & kEventTypeMask;
  if (damage_ != XCB_NONE && type == firstDamageEvent_ + XCB_DAMAGE_NOTIFY) havePixelsChanged_ = true;
  const auto connection = connection_.lock();
  if (!connection || !concernsMonitors(*connection, event)) return;
  haveMonitorsChanged_ = havePixelsChanged_ = true;
}

}  // namespace QelUtilVideo
