#include "platform/linux/x11/WindowEvents.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace QelUtilVideo {

namespace {

/// Keys that nobody takes are forgotten from here on.
constexpr std::size_t kMostKeys = 256;

template <class Event>
const Event& as(const xcb_generic_event_t& event) {
  return reinterpret_cast<const Event&>(event);
}

}  // namespace

WindowEvents::WindowEvents(const X11Toolkit& toolkit, xcb_window_t window, Owner owner,
                           std::function<void(const WindowNews&)> handler)
    : window_(window),
      owner_(owner),
      atoms_(toolkit.atoms()),
      news_(std::make_shared<MainThreadNews<WindowNews>>(toolkit.loop(), std::move(handler))) {}

void WindowEvents::setAncestors(std::vector<xcb_window_t> ancestors) {
  ancestors_.with([&](auto& watched) { watched.swap(ancestors); });
}

void WindowEvents::handleEvent(const xcb_generic_event_t& event) {
  noteStructure(event);
  if (owner_ == Owner::we) noteInput(event);
}

void WindowEvents::handleLoss() {
  news_->note([](WindowNews& news) { news.isGone = true; });
}

void WindowEvents::noteStructure(const xcb_generic_event_t& event) {
  // All of these begin alike, with the window that they were selected on and the one that they are about.
  const auto& structural = as<xcb_destroy_notify_event_t>(event);
  const auto concerns = [&] { return structural.event == structural.window && isWatched(structural.window); };
  switch (event.response_type & kEventTypeMask) {
    case XCB_CONFIGURE_NOTIFY:
    case XCB_GRAVITY_NOTIFY:
    case XCB_MAP_NOTIFY:
    case XCB_UNMAP_NOTIFY:
      if (concerns()) news_->note([](WindowNews& news) { news.isMoved = true; });
      break;
    case XCB_REPARENT_NOTIFY:
      if (concerns()) news_->note([](WindowNews& news) { news.isMoved = news.isReparented = true; });
      break;
    case XCB_DESTROY_NOTIFY:
      if (structural.window == window_) news_->note([](WindowNews& news) { news.isGone = true; });
      break;
    default:
      break;
  }
}

void WindowEvents::noteInput(const xcb_generic_event_t& event) {
  switch (event.response_type & kEventTypeMask) {
    case XCB_KEY_PRESS: {
      const auto& pressed = as<xcb_key_press_event_t>(event);
      if (pressed.event != window_) break;
      const KeyPress key = heldKeys_.with([&](HeldKeys& held) { return held.press(pressed); });
      news_->note([&](WindowNews& news) {
        if (news.keys.size() < kMostKeys) news.keys.push_back(key);
      });
      break;
    }
    case XCB_KEY_RELEASE: {
      const auto& released = as<xcb_key_release_event_t>(event);
      if (released.event == window_) heldKeys_.with([&](HeldKeys& held) { held.release(released); });
      break;
    }
    case XCB_FOCUS_OUT:
      if (as<xcb_focus_out_event_t>(event).event == window_) {
        heldKeys_.with([](HeldKeys& held) { held.releaseAll(); });
      }
      break;
    case XCB_CLIENT_MESSAGE:
      noteMessage(as<xcb_client_message_event_t>(event));
      break;
    default:
      break;
  }
}

void WindowEvents::noteMessage(const xcb_client_message_event_t& message) {
  constexpr std::uint8_t kBitsOfNumbers = 32;
  if (message.window != window_ || message.type != atoms_.wmProtocols || message.format != kBitsOfNumbers) {
    return;
  }
  const xcb_atom_t protocol = message.data.data32[0];
  if (protocol == XCB_ATOM_NONE) return;
  if (protocol == atoms_.wmDeleteWindow) news_->note([](WindowNews& news) { news.isAskedToClose = true; });
  if (protocol == atoms_.netWmPing) news_->note([&](WindowNews& news) { news.ping = message; });
}

bool WindowEvents::isWatched(xcb_window_t window) const {
  if (window == window_) return true;
  return ancestors_.with([=](const auto& ancestors) {
    return std::find(ancestors.begin(), ancestors.end(), window) != ancestors.end();
  });
}

}  // namespace QelUtilVideo
