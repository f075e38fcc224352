#pragma once

#include "platform/linux/x11/X11Connection.h"

#include <array>
#include <cstring>

namespace QelUtilVideo {

/// Whether somebody decides about the windows of the screen.
[[nodiscard]] inline bool hasWindowManager(const X11Connection::Use& use, xcb_window_t root) {
  const auto attributes = use.reply(xcb_get_window_attributes(use, root), xcb_get_window_attributes_reply);
  return attributes && (attributes->all_event_masks & XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT);
}

/// Sends an event to whoever that is; nothing happens where nobody does.
template <class Event>
void sendToWindowManager(const X11Connection::Use& use, xcb_window_t root, const Event& event) {
  std::array<char, sizeof(xcb_raw_generic_event_t)> bytes{};
  static_assert(sizeof event <= bytes.size());
  std::memcpy(bytes.data(), &event, sizeof event);
  xcb_send_event(use, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                 bytes.data());
  xcb_flush(use);
}

}  // namespace QelUtilVideo
