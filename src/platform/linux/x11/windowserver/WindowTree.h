#pragma once

#include "platform/linux/x11/windowserver/Applications.h"
#include "platform/linux/x11/windowserver/WindowProperties.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// What is known of one window.
struct WindowNode {
  std::uint64_t life = 0;  ///< as in `WindowRecord`
  xcb_window_t parent = XCB_NONE;
  int x = 0;  ///< of its border, from its parent's content
  int y = 0;
  int width = 0;  ///< of its content
  int height = 0;
  int border = 0;
  std::uint8_t depth = 0;
  xcb_visualid_t visual = 0;
  bool isInputOnly = false;
  bool isMapped = false;
  bool isOverrideRedirect = false;

  std::optional<WindowProperties> properties = {};  ///< of those that are listed
  /// The window's top when they were read, of which some are; none: they have to be read anew.
  xcb_window_t propertiesTop = XCB_NONE;
  std::optional<std::int32_t> process = {};
  Application application = {};
};

/// The windows of a server as far as they are known, and the list that follows from that. A plain value.
struct WindowTree {
  explicit WindowTree(xcb_window_t rootWindow) : root(rootWindow) {}

  /// Windows that lie deeper in others than this are not looked for.
  static constexpr int kDeepest = 8;

  xcb_window_t root;
  std::map<xcb_window_t, WindowNode> nodes = {};
  std::vector<xcb_window_t> children = {};  ///< the root's, back to front
  std::vector<xcb_window_t> clients = {};   ///< those that a window manager looks after, each once

  /// Null for one that is not known.
  [[nodiscard]] const WindowNode* find(xcb_window_t window) const;
  /// The root's child in which a window lies; none for one whose way up is not known.
  [[nodiscard]] xcb_window_t topOf(xcb_window_t window) const;
  /// Whether it and all that it lies in are mapped.
  [[nodiscard]] bool isViewable(xcb_window_t window) const;
  /// Those of the windows that are listed, each with its top.
  struct Listed {
    std::vector<std::pair<xcb_window_t, xcb_window_t>> onScreen;  ///< front to back
    std::vector<std::pair<xcb_window_t, xcb_window_t>> offScreen;
  };
  [[nodiscard]] Listed listed() const;
  /// Of those of the listed windows whose properties are known.
  [[nodiscard]] WindowList list() const;

 private:
  [[nodiscard]] PixelRect areaOf(xcb_window_t window) const;
  [[nodiscard]] std::optional<WindowRecord> record(xcb_window_t window, xcb_window_t top) const;
  [[nodiscard]] WindowRecord desktop() const;
};

}  // namespace QelUtilVideo
