#include "platform/linux/x11/Monitors.h"

#include "platform/linux/x11/PropertyValue.h"

#include <algorithm>
#include <span>
#include <utility>

namespace QelUtilVideo {

namespace {

using Use = X11Connection::Use;

/// XIDs use 29 bits, so that a name with this bit set is the ID of no output.
constexpr std::uint32_t kNameInsteadOfOutput = 0x80000000;

using Resources = XcbReply<xcb_randr_get_screen_resources_current_reply_t>;

Resources currentResources(const X11Connection& connection, const Use& use) {
  return use.reply(xcb_randr_get_screen_resources_current(use, connection.root()),
                   xcb_randr_get_screen_resources_current_reply);
}

/// What the server tells about modes, kept for the refresh rates.
class Modes {
 public:
  Modes(const X11Connection& connection, const Use& use) : resources_(currentResources(connection, use)) {
    if (!resources_) return;
    modes_ = {xcb_randr_get_screen_resources_current_modes(resources_.get()), resources_->num_modes};
  }

  double refreshRate(xcb_randr_mode_t id) const {
    const auto mode = std::ranges::find(modes_, id, &xcb_randr_mode_info_t::id);
    if (mode == modes_.end()) return 0;
    double lines = mode->vtotal;
    if (mode->mode_flags & XCB_RANDR_MODE_FLAG_DOUBLE_SCAN) lines *= 2;
    if (mode->mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) lines /= 2;
    const double pixels = lines * mode->htotal;
    return pixels > 0 ? mode->dot_clock / pixels : 0;
  }

 private:
  Resources resources_;
  std::span<const xcb_randr_mode_info_t> modes_;
};

/// A name that any client may have given.
std::string soundName(const void* bytes, int length) {
  const std::span name(static_cast<const std::uint8_t*>(bytes), static_cast<std::size_t>(length));
  return PropertyValue(PropertyType::utf8String, 8, name).text().value_or("");
}

std::string atomName(const Use& use, xcb_atom_t atom) {
  const auto reply = use.reply(xcb_get_atom_name(use, atom), xcb_get_atom_name_reply);
  if (!reply) return {};
  return soundName(xcb_get_atom_name_name(reply.get()), xcb_get_atom_name_name_length(reply.get()));
}

/// Adds to the monitor what its output knows: name, EDID, refresh rate.
void describeByOutput(const X11Connection& connection, const Use& use, const Modes& modes,
                      xcb_randr_output_t output, Monitor& monitor) {
  constexpr std::uint32_t kEdidWords = 128 / 4;
  const auto infoCookie = xcb_randr_get_output_info(use, output, XCB_CURRENT_TIME);
  const auto edidCookie = xcb_randr_get_output_property(use, output, connection.edidAtom(),
                                                        XCB_GET_PROPERTY_TYPE_ANY, 0, kEdidWords, 0, 0);
  const auto info = use.reply(infoCookie, xcb_randr_get_output_info_reply);
  const auto edid = use.reply(edidCookie, xcb_randr_get_output_property_reply);
  if (info) {
    monitor.name = soundName(xcb_randr_get_output_info_name(info.get()),
                             xcb_randr_get_output_info_name_length(info.get()));
    const auto crtc =
        use.reply(xcb_randr_get_crtc_info(use, info->crtc, XCB_CURRENT_TIME), xcb_randr_get_crtc_info_reply);
    if (crtc) monitor.refreshRate = modes.refreshRate(crtc->mode);
  }
  if (edid) {
    const auto value = PropertyValue::ofReply(PropertyType::other, edid->format, edid->num_items,
                                              edid->length, xcb_randr_get_output_property_data(edid.get()));
    monitor.edid = EdidBlock::parse(value.octets());
  }
  if (monitor.edid && !monitor.edid->productName.empty()) monitor.name = monitor.edid->productName;
}

Monitor describe(const X11Connection& connection, const Use& use, const Modes& modes,
                 const xcb_randr_monitor_info_t& info) {
  Monitor monitor;
  monitor.x = info.x;
  monitor.y = info.y;
  monitor.width = info.width;
  monitor.height = info.height;
  if (xcb_randr_monitor_info_outputs_length(&info) > 0) {
    monitor.displayID = xcb_randr_monitor_info_outputs(&info)[0];
    describeByOutput(connection, use, modes, monitor.displayID, monitor);
  } else {
    monitor.displayID = info.name | kNameInsteadOfOutput;
  }
  if (monitor.name.empty()) monitor.name = atomName(use, info.name);
  return monitor;
}

/// Some servers know their current resources only after the full question, which takes long where it asks
/// the displays themselves.
void probeUnknownOutputs(const X11Connection& connection, const Use& use) {
  const Resources known = currentResources(connection, use);
  if (known && known->num_outputs > 0) return;
  (void)use.reply(xcb_randr_get_screen_resources(use, connection.root()),
                  xcb_randr_get_screen_resources_reply);
}

std::vector<Monitor> wholeRoot(const X11Connection& connection, const Use& use) {
  const auto root = use.reply(xcb_get_geometry(use, connection.root()), xcb_get_geometry_reply);
  if (!root) return {};
  Monitor monitor;
  monitor.displayID = connection.root();
  monitor.name = "default";
  monitor.width = root->width;
  monitor.height = root->height;
  return {monitor};
}

}  // namespace

std::vector<Monitor> listMonitors(X11Connection& connection) {
  const Use use(connection);
  if (!connection.hasMonitors()) return wholeRoot(connection, use);
  const auto reply =
      use.reply(xcb_randr_get_monitors(use, connection.root(), 1), xcb_randr_get_monitors_reply);
  if (!reply) return {};
  const Modes modes(connection, use);
  std::vector<Monitor> monitors;
  for (auto infos = xcb_randr_get_monitors_monitors_iterator(reply.get()); infos.rem > 0;
       xcb_randr_monitor_info_next(&infos)) {
    if (infos.data->width == 0 || infos.data->height == 0) continue;
    Monitor monitor = describe(connection, use, modes, *infos.data);
    monitors.insert(infos.data->primary ? monitors.begin() : monitors.end(), std::move(monitor));
  }
  // What was put together while the connection broke is half a truth.
  return connection.isAlive() ? monitors : std::vector<Monitor>{};
}

EventSelection watchMonitors(const std::shared_ptr<X11Connection>& connection) {
  const Use use(*connection);
  // Monitors that are defined by name show only as a change of the root window.
  EventSelection rootEvents(connection, connection->root(), XCB_EVENT_MASK_STRUCTURE_NOTIFY);
  if (connection->hasMonitors()) {
    xcb_randr_select_input(use, connection->root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE | XCB_RANDR_NOTIFY_MASK_OUTPUT_PROPERTY);
    probeUnknownOutputs(*connection, use);
  }
  xcb_flush(use);
  return rootEvents;
}

bool concernsMonitors(const X11Connection& connection, const xcb_generic_event_t& event) {
  const std::uint8_t type = event.response_type & kEventTypeMask;
  if (type == XCB_CONFIGURE_NOTIFY) {
    return reinterpret_cast<const xcb_configure_notify_event_t&>(event).window == connection.root();
  }
  return connection.hasMonitors() && (type == connection.firstRandREvent() + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                                      type == connection.firstRandREvent() + XCB_RANDR_NOTIFY);
}

}  // namespace QelUtilVideo
