#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// Whole pixels of the root window, origin top-left.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  friend bool operator==(const PixelRect&, const PixelRect&) = default;
};

/// One window as the server has it: a client's own top-level window, or an unmanaged one such as a menu.
struct WindowRecord {
  xcb_window_t window = XCB_NONE;
  /// The root's child in which it lies: the window manager's frame, or itself. Its pixels are read there.
  xcb_window_t top = XCB_NONE;
  /// Numbers are given again: another window of the same number has another life.
  std::uint64_t topLife = 0;
  bool isTopViewable = false;
  /// Where `top` lies with its border; its pixmap measures this.
  PixelRect topBounds = {};
  int borderWidth = 0;  ///< of `top`
  /// Where the window's content lies: inside its border, without shadows that the client draws itself.
  PixelRect bounds = {};
  std::uint8_t depth = 0;     ///< of `top`
  xcb_visualid_t visual = 0;  ///< of `top`
  bool isOnScreen = false;    ///< it and what it lies in are mapped

  std::int32_t layer = 0;
  double alpha = 1;
  std::int32_t processIdentifier = 0;
  std::string ownerName = {};
  std::optional<std::string> bundleIdentifier = {};  ///< of the owner
  std::optional<std::string> name = {};

  friend bool operator==(const WindowRecord&, const WindowRecord&) = default;
};

/// The windows of a server at one moment.
struct WindowList {
  std::vector<WindowRecord> onScreen;   ///< front to back
  std::vector<WindowRecord> offScreen;  ///< managed, not viewable
  WindowRecord desktop;                 ///< the root itself, behind all
};

}  // namespace QelUtilVideo
