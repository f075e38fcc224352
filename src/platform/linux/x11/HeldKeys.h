#pragma once

#include <xcb/xcb.h>

#include <bitset>
#include <cstdint>

namespace QelUtilVideo {

/// One press as the server tells it.
struct KeyPress {
  xcb_keycode_t keycode = 0;
  std::uint16_t state = 0;  ///< modifiers and buttons before it, and the keyboard's group
  bool isARepeat = false;
};

/// Tells repeats from first presses: a key that is held down is pressed over and over and released once,
/// as the server was asked to have it.
class HeldKeys {
 public:
  [[nodiscard]] KeyPress press(const xcb_key_press_event_t& event) {
    const bool wasHeld = held_.test(event.detail);
    held_.set(event.detail);
    return {event.detail, event.state, wasHeld};
  }
  void release(const xcb_key_release_event_t& event) { held_.reset(event.detail); }
  /// The keyboard went elsewhere, and what is released there is not told here.
  void releaseAll() { held_.reset(); }

 private:
  std::bitset<256> held_;
};

}  // namespace QelUtilVideo
