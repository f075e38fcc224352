#pragma once

#include "platform/linux/x11/X11Connection.h"

#include <memory>
#include <utility>

namespace QelUtilVideo {

/// A window that we made; the server takes it away with the object. Any thread.
class OwnedWindow {
 public:
  OwnedWindow(std::shared_ptr<X11Connection> connection, xcb_window_t id)
      : connection_(std::move(connection)), id_(id) {}
  OwnedWindow(const OwnedWindow&) = delete;
  OwnedWindow& operator=(const OwnedWindow&) = delete;
  ~OwnedWindow() {
    if (id_ == XCB_NONE) return;
    const X11Connection::Use use(*connection_);
    xcb_destroy_window(use, id_);
    xcb_flush(use);
  }

  [[nodiscard]] xcb_window_t id() const { return id_; }
  /// The server has taken it away already: its number may be another window's by now.
  void forget() { id_ = XCB_NONE; }

 private:
  const std::shared_ptr<X11Connection> connection_;
  xcb_window_t id_;
};

}  // namespace QelUtilVideo
