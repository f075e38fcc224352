#pragma once

#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <map>
#include <memory>
#include <optional>
#include <set>

namespace QelUtilVideo {

/// The pictures that the server keeps of windows, whole even where others cover them, from the first time
/// that somebody asks for one. The last picture of a window outlives its being unmapped. For one thread at a
/// time, inside a `Use`; windows are the root's children.
class WindowPixmaps {
 public:
  struct Kept {
    xcb_pixmap_t pixmap = XCB_NONE;
    int width = 0;  ///< of the window with its border
    int height = 0;
  };

  /// Whether the server can do that at all.
  [[nodiscard]] static bool areAvailable(X11Connection& connection);

  /// Names the picture that the window has now; it is the caller's, to give to `keep`. The server refuses
  /// later on for a window that is not on screen.
  [[nodiscard]] xcb_pixmap_t name(const X11Connection::Use& use, xcb_window_t top);
  /// Keeps it as the window's last picture.
  void keep(const X11Connection::Use& use, xcb_window_t top, const Kept& picture);
  /// Names and keeps the pictures of all these windows, with one wait; those that have one.
  [[nodiscard]] std::set<xcb_window_t> keepAll(const X11Connection::Use& use,
                                               const std::set<xcb_window_t>& tops);
  /// The last picture, if it has the size that the window has now.
  [[nodiscard]] std::optional<Kept> find(const WindowRecord& window) const;
  /// Whether there is a last picture, of whatever size.
  [[nodiscard]] bool has(xcb_window_t top) const { return kept_.contains(top); }
  /// Gives up what belongs to windows that the list does not have.
  void forgetOthers(const X11Connection::Use& use, const WindowList& list);
  void forgetAll(const X11Connection::Use& use) { forgetOthers(use, {}); }

 private:
  std::set<xcb_window_t> redirected_;
  std::map<xcb_window_t, Kept> kept_;
};

}  // namespace QelUtilVideo
