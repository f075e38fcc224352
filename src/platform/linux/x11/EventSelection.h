#pragma once

#include "platform/linux/x11/X11Connection.h"

#include <cstdint>
#include <memory>

namespace QelUtilVideo {

/// Has the server tell of a window's events (`XCB_EVENT_MASK_…`) while it lives. A connection has one mask
/// for each window: this is the one place that sets it, to what all who are interested want together. For
/// a window that is gone it does nothing. Its end reaches the server with the connection's next request. Any
/// thread.
class EventSelection {
 public:
  /// Of nothing.
  EventSelection() = default;
  EventSelection(std::shared_ptr<X11Connection> connection, xcb_window_t window, std::uint32_t mask);
  /// One of many, which is sent with the requests that follow within the use.
  EventSelection(const X11Connection::Use& use, std::shared_ptr<X11Connection> connection,
                 xcb_window_t window, std::uint32_t mask);
  EventSelection(EventSelection&& other) noexcept { *this = std::move(other); }
  EventSelection& operator=(EventSelection&& other) noexcept;
  ~EventSelection();

 private:
  std::shared_ptr<X11Connection> connection_;  ///< null: of nothing
  xcb_window_t window_ = XCB_NONE;
  std::uint32_t mask_ = 0;
};

}  // namespace QelUtilVideo
