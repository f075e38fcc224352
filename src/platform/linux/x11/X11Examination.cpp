#include "platform/linux/x11/X11Examination.h"

#include "platform/linux/x11/DrawableImage.h"
#include "platform/linux/x11/Monitors.h"
#include "platform/linux/x11/ShmPool.h"
#include "platform/linux/x11/X11Connection.h"

#include <xcb/composite.h>
#include <xcb/res.h>
#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <cmath>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

namespace QelUtilVideo {

namespace {

using State = Finding::State;
using Use = X11Connection::Use;

Finding finding(std::string subject, State state, std::string detail, std::string remedy = {}) {
  return {Finding::Area::displays, std::move(subject), state, std::move(detail), std::move(remedy)};
}

std::string environment(const char* variable) {
  const char* value = std::getenv(variable);
  return value ? value : "";
}

// The server

Finding noServer(const char* name) {
  constexpr const char* subject = "X server";
  const std::string display = name ? name : environment("DISPLAY");
  if (!display.empty()) {
    return finding(subject, State::missing, "no connection to " + display,
                   "Check that this server runs and lets the user in, which xauth and xhost are for.");
  }
  if (!environment("WAYLAND_DISPLAY").empty()) {
    return finding(subject, State::missing, "this session has Wayland alone",
                   "Log in to an X11 session; under Wayland displays cannot be captured.");
  }
  return finding(
      subject, State::missing, "DISPLAY is not set",
      "Set DISPLAY to a running X server, as in DISPLAY=:0; the package xvfb has one that needs no "
      "screen.");
}

std::string vendorOf(const xcb_setup_t& setup) {
  return {xcb_setup_vendor(&setup), static_cast<std::size_t>(xcb_setup_vendor_length(&setup))};
}

/// X.Org's numbers are "1.20.4" and, since the leading 1 was dropped, "21.1.7"; others are shown as they are.
std::string releaseOf(const xcb_setup_t& setup) {
  const std::uint32_t release = setup.release_number;
  const std::uint32_t major = release / 10'000'000;
  const std::uint32_t minor = release / 100'000 % 100;
  const std::uint32_t patch = release / 1'000 % 100;
  if (vendorOf(setup).find("X.Org") == std::string::npos || major == 0) return std::to_string(release);
  if (minor < 21) return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
  return std::to_string(minor) + "." + std::to_string(patch) + "." + std::to_string(release % 1'000);
}

Finding server(const X11Connection& connection, const char* name) {
  return finding("X server", State::ok,
                 vendorOf(connection.setup()) + " " + releaseOf(connection.setup()) + " at " +
                     (name ? name : environment("DISPLAY")));
}

// Its extensions

template <class Reply>
std::string versionOf(const XcbReply<Reply>& reply) {
  if (!reply) return "no answer";
  return std::to_string(reply->major_version) + "." + std::to_string(reply->minor_version);
}

Finding arrangement(const X11Connection& connection, const Use& use) {
  constexpr const char* remedy = "Use an X server with RANDR 1.5 or later.";
  const auto version = connection.firstRandREvent() == 0
                           ? nullptr
                           : use.reply(xcb_randr_query_version(use, 1, 6), xcb_randr_query_version_reply);
  if (!version) return finding("RANDR", State::limited, "none: the desktop counts as one display", remedy);
  if (connection.hasMonitors()) return finding("RANDR", State::ok, versionOf(version));
  return finding("RANDR", State::limited, versionOf(version) + ": the desktop counts as one display", remedy);
}

Finding sharedMemory(const std::shared_ptr<X11Connection>& connection, const Use& use, ShmPool& pool) {
  constexpr const char* subject = "MIT-SHM";
  if (!connection->hasSharedMemory()) {
    return finding(subject, State::limited, "none: pictures come slowly, through the connection",
                   "Use a server on this machine, and one that has the extension.");
  }
  const std::string version = versionOf(use.reply(xcb_shm_query_version(use), xcb_shm_query_version_reply));
  if (!pool.take(1)) {
    return finding(subject, State::limited, version + ", but the server cannot reach this process's memory",
                   "Run the program where its server runs: on that machine, and in the same container or "
                   "with shared IPC.");
  }
  return finding(
      subject, State::ok,
      version + (connection->hasDescriptorPassing() ? ", by file descriptor" : ", by System V key"));
}

Finding cursor(const X11Connection& connection, const Use& use) {
  if (connection.hasCursorImages()) {
    const auto version = use.reply(xcb_xfixes_query_version(use, 6, 0), xcb_xfixes_query_version_reply);
    return finding("XFIXES", State::ok, versionOf(version));
  }
  return finding("XFIXES", State::limited, "none: frames are without the cursor",
                 "Use an X server that has the extension.");
}

Finding coveredWindows(const Use& use) {
  constexpr const char* subject = "COMPOSITE";
  const xcb_query_extension_reply_t* extension = xcb_get_extension_data(use, &xcb_composite_id);
  const auto version = extension && extension->present ? use.reply(xcb_composite_query_version(use, 0, 4),
                                                                   xcb_composite_query_version_reply)
                                                       : nullptr;
  if (version) return finding(subject, State::ok, versionOf(version));
  return finding(subject, State::limited, "none: of a window, only what nothing covers can be captured",
                 "Use an X server that has the extension.");
}

Finding owners(const Use& use) {
  constexpr const char* subject = "X-Resource";
  const xcb_query_extension_reply_t* extension = xcb_get_extension_data(use, &xcb_res_id);
  const auto version = extension && extension->present
                           ? use.reply(xcb_res_query_version(use, 1, 2), xcb_res_query_version_reply)
                           : nullptr;
  if (!version || (version->server_major == 1 && version->server_minor < 2)) {
    return finding(subject, State::limited,
                   "none: windows belong to the processes that they name, if they do",
                   "Use an X server with version 1.2 of the extension.");
  }
  return finding(subject, State::ok,
                 std::to_string(version->server_major) + "." + std::to_string(version->server_minor));
}

// Its window manager

xcb_atom_t atom(const Use& use, std::string_view name) {
  const auto reply = use.reply(xcb_intern_atom(use, 1, static_cast<std::uint16_t>(name.size()), name.data()),
                               xcb_intern_atom_reply);
  return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

using Property = XcbReply<xcb_get_property_reply_t>;

Property property(const Use& use, xcb_window_t window, std::string_view name, xcb_atom_t type) {
  constexpr std::uint32_t mostWords = 64;
  return use.reply(xcb_get_property(use, 0, window, atom(use, name), type, 0, mostWords),
                   xcb_get_property_reply);
}

/// The window through which a window manager tells that it is there; it names itself.
std::optional<xcb_window_t> checkWindow(const Use& use, xcb_window_t window) {
  const Property reply = property(use, window, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW);
  if (!reply || reply->format != 32 || xcb_get_property_value_length(reply.get()) < 4) return std::nullopt;
  return *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
}

Finding windowManager(const X11Connection& connection, const Use& use) {
  constexpr const char* subject = "Window manager";
  const std::optional<xcb_window_t> window = checkWindow(use, connection.root());
  // What a manager that has died left behind names a window that is gone, or is somebody else's now.
  if (!window || checkWindow(use, *window) != window) {
    return finding(subject, State::limited, "none: windows have no frames",
                   "Start a window manager, such as the one of the package openbox.");
  }
  const Property name = property(use, *window, "_NET_WM_NAME", XCB_GET_PROPERTY_TYPE_ANY);
  if (!name || name->format != 8) return finding(subject, State::ok, "one without a name");
  return finding(subject, State::ok,
                 {static_cast<const char*>(xcb_get_property_value(name.get())),
                  static_cast<std::size_t>(xcb_get_property_value_length(name.get()))});
}

// Its displays

std::string describe(const Monitor& monitor) {
  std::string text = std::to_string(monitor.width) + "x" + std::to_string(monitor.height) + " at " +
                     std::to_string(monitor.x) + "," + std::to_string(monitor.y);
  if (monitor.refreshRate > 0) text += ", " + std::to_string(std::lround(monitor.refreshRate)) + " Hz";
  return text;
}

/// Whether a picture of the display can be had, tried on its first pixels.
Finding display(X11Connection& connection, ShmPool& pool, const Monitor& monitor) {
  const std::string subject = "Display " + monitor.name;
  const auto picture = copyDrawable(connection, pool, connection.root(), {monitor.x, monitor.y, 1, 1});
  if (!picture) {
    return finding(subject, State::missing, describe(monitor) + ": the server gives no picture of it",
                   "Put the display where the desktop is, as with `xrandr --auto`.");
  }
  if (picture->layout().colorSpaceModel != CGColorSpaceModel::rgb || picture->layout().bitsPerPixel != 32) {
    return finding(subject, State::missing, describe(monitor) + ": its pixels are not red, green and blue",
                   "Start the X server with a depth of 24.");
  }
  return finding(subject, State::ok, describe(monitor));
}

/// One finding that says "missing" only when no display can be captured, then the displays themselves.
void addDisplays(X11Connection& connection, ShmPool& pool, std::vector<Finding>& findings) {
  constexpr const char* subject = "Displays";
  if (connection.isXWayland()) {
    findings.push_back(finding(subject, State::missing, "under XWayland they all look black",
                               "Log in to an X11 session instead of a Wayland one."));
    return;
  }
  std::vector<Finding> displays;
  std::size_t usable = 0;
  for (const Monitor& monitor : listMonitors(connection)) {
    displays.push_back(display(connection, pool, monitor));
    usable += displays.back().state == State::ok ? 1 : 0;
  }
  if (displays.empty()) {
    findings.push_back(finding(subject, State::missing, "the server has none",
                               "Connect a display and switch it on, as with `xrandr --auto`."));
  }
  for (Finding& found : displays) {
    // One that cannot be captured takes nothing from the others.
    if (usable > 0 && found.state == State::missing) found.state = State::limited;
    findings.push_back(std::move(found));
  }
}

}  // namespace

std::vector<Finding> examineX11(const char* name) {
  const std::shared_ptr<X11Connection> connection = X11Connection::open(name);
  if (!connection) return {noServer(name)};
  const Use use(*connection);
  ShmPool pool(connection);
  std::vector<Finding> findings{
      server(*connection, name),      arrangement(*connection, use), sharedMemory(connection, use, pool),
      cursor(*connection, use),       coveredWindows(use),           owners(use),
      windowManager(*connection, use)};
  addDisplays(*connection, pool, findings);
  if (!connection->isAlive()) return {noServer(name)};
  return findings;
}

}  // namespace QelUtilVideo
