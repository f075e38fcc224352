#pragma once

#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// A picture that the server keeps of a window, given back with the object.
class NamedPixmap {
 public:
  NamedPixmap() = default;
  /// The picture that the root's child `top` has now. The server refuses later on where it has none.
  NamedPixmap(const X11Connection::Use& use, std::shared_ptr<X11Connection> connection, xcb_window_t top);
  NamedPixmap(NamedPixmap&& other) noexcept { *this = std::move(other); }
  NamedPixmap& operator=(NamedPixmap&& other) noexcept {
    std::swap(connection_, other.connection_);
    std::swap(id_, other.id_);
    return *this;
  }
  ~NamedPixmap();

  [[nodiscard]] xcb_pixmap_t id() const { return id_; }
  [[nodiscard]] explicit operator bool() const { return id_ != XCB_NONE; }

 private:
  std::shared_ptr<X11Connection> connection_;
  xcb_pixmap_t id_ = XCB_NONE;
};

/// The pictures that the server keeps of windows, whole even where others cover them, from the first time
/// that somebody asks for one. The last picture of a window outlives its being unmapped. For one thread at a
/// time, inside a `Use`; pictures are those of the root's children, in which the windows lie.
class WindowPixmaps {
 public:
  struct Kept {
    NamedPixmap pixmap;
    int width = 0;  ///< of the top with its border
    int height = 0;
    std::uint64_t life = 0;          ///< of the top
    xcb_window_t window = XCB_NONE;  ///< which one was shown in it
  };

  explicit WindowPixmaps(std::shared_ptr<X11Connection> connection) : connection_(std::move(connection)) {}

  /// Whether the server can do that at all.
  [[nodiscard]] static bool areAvailable(X11Connection& connection);
  /// Whether there can be pixmaps of that size: asked for larger ones, some servers break down.
  [[nodiscard]] static bool isPossible(const PixelRect& size);

  /// Names the picture that the window's top has now; none for one that is too large.
  [[nodiscard]] NamedPixmap name(const X11Connection::Use& use, const WindowRecord& window);
  /// The server had no such picture: it may have refused the redirection too, which shall be made anew.
  void doubt(const X11Connection::Use& use, const WindowRecord& window);
  /// Keeps it as the window's last picture.
  void keep(const WindowRecord& window, NamedPixmap pixmap, const xcb_get_geometry_reply_t& size);
  /// Names and keeps the pictures of all these windows, with one wait; gives the tops that have one.
  [[nodiscard]] std::set<xcb_window_t> keepAll(const X11Connection::Use& use,
                                               const std::vector<WindowRecord>& windows);
  /// The last picture of the window's top, of whatever size; null when there is none, or when it shows
  /// another window than this one, which is not on screen.
  [[nodiscard]] const Kept* last(const WindowRecord& window) const;
  /// The same, if it has the size that the top has now.
  [[nodiscard]] const Kept* find(const WindowRecord& window) const;
  /// Gives up what belongs to windows that the list does not have.
  void forgetOthers(const X11Connection::Use& use, const WindowList& list);
  void forgetAll(const X11Connection::Use& use) { forgetOthers(use, {}); }

 private:
  const std::shared_ptr<X11Connection> connection_;
  std::map<xcb_window_t, std::uint64_t> redirected_;  ///< tops with their lives
  std::map<xcb_window_t, Kept> kept_;
};

}  // namespace QelUtilVideo
