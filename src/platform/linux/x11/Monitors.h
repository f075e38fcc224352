#pragma once

#include "platform/linux/x11/Edid.h"
#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/CGGeometry.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// One monitor of the X server's desktop.
struct Monitor {
  std::uint32_t displayID = 0;
  std::string name;  ///< the display's product name, else the output's, else the monitor's
  int x = 0;         ///< pixels from the root window's top-left corner
  int y = 0;
  int width = 0;
  int height = 0;
  double refreshRate = 0;  ///< frames per second; 0: unknown
  std::optional<EdidBlock> edid;

  friend bool operator==(const Monitor&, const Monitor&) = default;
  [[nodiscard]] CGRect bounds() const { return CGRectMake(x, y, width, height); }
};

/// Asks the server for its monitors, the primary one first, those without an area left out. A server
/// that knows no monitors has one that is its root window. Empty after a loss of the connection.
[[nodiscard]] std::vector<Monitor> listMonitors(X11Connection& connection);

/// Asks the server to report every change of what `listMonitors` answers, and to look for outputs where
/// it knows none yet. Once for a connection, before the first list; as long as the answer lives.
[[nodiscard]] EventSelection watchMonitors(const std::shared_ptr<X11Connection>& connection);

/// Whether the event says that monitors may have changed.
[[nodiscard]] bool concernsMonitors(const X11Connection& connection, const xcb_generic_event_t& event);

}  // namespace QelUtilVideo
