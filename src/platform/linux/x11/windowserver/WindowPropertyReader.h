#pragma once

#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowProperties.h"

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// Reads what clients and window managers wrote about windows. Requests go out first, for as many windows as
/// there are; the replies are taken afterwards:
///
///     std::vector<WindowPropertyReader::Question> questions;
///     for (const auto window : windows) questions.push_back(reader.ask(use, window, frame(window)));
///     for (const auto& question : questions) use_(reader.read(use, question));
class WindowPropertyReader {
 public:
  explicit WindowPropertyReader(X11Connection& connection);

  static constexpr std::size_t kCount = 13;
  struct Question {
    std::array<xcb_get_property_cookie_t, kCount> cookies{};
  };
  /// `top` is the window manager's frame, on which it may have repeated the opacity, or the window itself.
  [[nodiscard]] Question ask(const X11Connection::Use& use, xcb_window_t window, xcb_window_t top) const;
  [[nodiscard]] WindowProperties read(const X11Connection::Use& use, const Question& question) const;
  /// Whether a change of this property is one of a window's `WindowProperties`.
  [[nodiscard]] bool concerns(xcb_atom_t property) const;

  /// The windows that the window manager looks after, as it says on the root; absent when none says so.
  [[nodiscard]] xcb_get_property_cookie_t askClients(const X11Connection::Use& use, xcb_window_t root) const;
  [[nodiscard]] std::optional<std::vector<xcb_window_t>> readClients(const X11Connection::Use& use,
                                                                     xcb_get_property_cookie_t asked) const;
  [[nodiscard]] bool concernsClients(xcb_atom_t property) const { return property == clientList_; }

  /// Whether the window is one that some window manager looks after, as one that knows no list says.
  [[nodiscard]] xcb_get_property_cookie_t askState(const X11Connection::Use& use, xcb_window_t window) const;
  [[nodiscard]] static bool readState(const X11Connection::Use& use, xcb_get_property_cookie_t asked);
  [[nodiscard]] bool concernsState(xcb_atom_t property) const { return property == wmState_; }

 private:
  void intern(X11Connection& connection);

  std::array<xcb_atom_t, kCount> properties_{};
  std::vector<xcb_atom_t> types_;  ///< in the order of `WindowType`
  xcb_atom_t utf8String_ = XCB_ATOM_NONE;
  xcb_atom_t modal_ = XCB_ATOM_NONE;
  xcb_atom_t clientList_ = XCB_ATOM_NONE;
  xcb_atom_t wmState_ = XCB_ATOM_NONE;
};

}  // namespace QelUtilVideo
