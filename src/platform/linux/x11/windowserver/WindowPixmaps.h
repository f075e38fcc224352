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

  explicit WindowPixmaps(X11Connection& connection);

  /// Whether the server can do that at all.
  [[nodiscard]] bool areAvailable() const { return areAvailable_; }
  /// Names the picture that the window has now; it is the caller's, to give to `keep` or `drop`. The server
  /// refuses later on for a window that is not on screen.
  [[nodiscard]] xcb_pixmap_t name(const X11Connection::Use& use, xcb_window_t top);
  /// Keeps it as the window's last picture.
  void keep(const X11Connection::Use& use, xcb_window_t top, const Kept& picture);
  static void drop(const X11Connection::Use& use, xcb_pixmap_t pixmap);
  /// The last picture, if it has the size that the window has now.
  [[nodiscard]] std::optional<Kept> find(const WindowRecord& window) const;
  /// Gives up what belongs to windows that are gone.
  void forgetOthers(const X11Connection::Use& use, const WindowList& list);

 private:
  bool areAvailable_ = false;
  std::set<xcb_window_t> redirected_;
  std::map<xcb_window_t, Kept> kept_;
};

}  // namespace QelUtilVideo
