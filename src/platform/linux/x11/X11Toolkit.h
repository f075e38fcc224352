#pragma once

#include "platform/CallSafely.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/X11Keyboard.h"

#include <cstdint>
#include <memory>

namespace QelUtilVideo {

/// The names that window managers and programs on one server talk by.
struct X11Atoms {
  xcb_atom_t utf8String = XCB_ATOM_NONE;
  xcb_atom_t wmProtocols = XCB_ATOM_NONE;
  xcb_atom_t wmDeleteWindow = XCB_ATOM_NONE;
  xcb_atom_t netWmPing = XCB_ATOM_NONE;
  xcb_atom_t netWmName = XCB_ATOM_NONE;
  xcb_atom_t netWmPid = XCB_ATOM_NONE;
  xcb_atom_t netActiveWindow = XCB_ATOM_NONE;
};

/// What all windows on one server share. Main thread; it may go on any.
class X11Toolkit {
 public:
  /// Null when the server is lost, or has no visual with 24 bits of true colour, of which `trouble` is told.
  /// The loop outlives the object.
  static std::shared_ptr<X11Toolkit> make(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                                          const TroubleHandler& trouble);

  X11Toolkit(const X11Toolkit&) = delete;
  X11Toolkit& operator=(const X11Toolkit&) = delete;
  ~X11Toolkit();

  [[nodiscard]] const std::shared_ptr<X11Connection>& connection() const { return connection_; }
  [[nodiscard]] EventLoop& loop() const { return loop_; }
  [[nodiscard]] const X11Atoms& atoms() const { return atoms_; }
  [[nodiscard]] X11Keyboard& keyboard() { return keyboard_; }
  [[nodiscard]] xcb_visualid_t visual() const { return visual_; }

  /// Makes a hidden black window of that visual, which keeps its pixels when its size changes. It is the
  /// caller's, and the server has it by now. `XCB_NONE` when the server refuses.
  [[nodiscard]] xcb_window_t createWindow(xcb_window_t parent, std::uint16_t width,
                                          std::uint16_t height) const;

 protected:
  X11Toolkit(std::shared_ptr<X11Connection> connection, EventLoop& loop, xcb_visualid_t visual);

 private:
  const std::shared_ptr<X11Connection> connection_;
  EventLoop& loop_;
  const xcb_visualid_t visual_;
  xcb_colormap_t colormap_;
  X11Atoms atoms_;
  X11Keyboard keyboard_;
};

}  // namespace QelUtilVideo
