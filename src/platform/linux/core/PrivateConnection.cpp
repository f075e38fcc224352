#include "platform/linux/core/PrivateConnection.h"

#include "platform/linux/core/NoPipeSignal.h"

#include <xcb/xcb.h>

#include <cstdlib>
#include <utility>

namespace QelUtilVideo {

namespace {

struct Free {
  void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using Reply = std::unique_ptr<T, Free>;

bool hasVisual(const xcb_depth_t& depth, std::uint32_t visual) {
  for (auto it = xcb_depth_visuals_iterator(&depth); it.rem > 0; xcb_visualtype_next(&it)) {
    if (it.data->visual_id == visual) return true;
  }
  return false;
}

}  // namespace

std::unique_ptr<PrivateConnection> PrivateConnection::open(const std::string& name) {
  const NoPipeSignal noSignal;
  int screen = 0;
  Connection connection(xcb_connect(name.empty() ? nullptr : name.c_str(), &screen));
  if (xcb_connection_has_error(connection.get()) != 0) return nullptr;
  return std::unique_ptr<PrivateConnection>(new PrivateConnection(std::move(connection), screen));
}

PrivateConnection::PrivateConnection(Connection connection, int screen)
    : connection_(std::move(connection)), screen_(screen) {}

PrivateConnection::~PrivateConnection() {
  const NoPipeSignal noSignal;
  connection_.reset();
}

void PrivateConnection::Disconnect::operator()(xcb_connection_t* connection) const {
  xcb_disconnect(connection);
}

bool PrivateConnection::isAlive() const { return xcb_connection_has_error(connection_.get()) == 0; }

int PrivateConnection::depthOf(std::uint32_t visual) const {
  const xcb_setup_t* setup = xcb_get_setup(connection_.get());
  if (!setup) return 0;
  for (auto screen = xcb_setup_roots_iterator(setup); screen.rem > 0; xcb_screen_next(&screen)) {
    for (auto depth = xcb_screen_allowed_depths_iterator(screen.data); depth.rem > 0;
         xcb_depth_next(&depth)) {
      if (hasVisual(*depth.data, visual)) return depth.data->depth;
    }
  }
  return 0;
}

void PrivateConnection::flush() const {
  const NoPipeSignal noSignal;
  xcb_flush(connection_.get());
}

std::optional<PixelSize> PrivateConnection::sizeOf(std::uint32_t window) const {
  const NoPipeSignal noSignal;
  xcb_generic_error_t* error = nullptr;
  const Reply<xcb_get_geometry_reply_t> reply(
      xcb_get_geometry_reply(connection_.get(), xcb_get_geometry(connection_.get(), window), &error));
  const Reply<xcb_generic_error_t> refusal(error);
  while (Reply<xcb_generic_event_t>(xcb_poll_for_queued_event(connection_.get()))) continue;
  if (!reply) return std::nullopt;
  return PixelSize{reply->width, reply->height};
}

}  // namespace QelUtilVideo
