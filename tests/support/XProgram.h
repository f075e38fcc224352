#pragma once

#include "platform/Images.h"
#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <xcb/xtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace QelUtilVideo {

inline constexpr std::uint32_t kWhite = 0xFFFFFF;
inline constexpr std::uint32_t kManagesWindows =
    XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;

/// Another program on the server, which may play the window manager. Each call waits until the server
/// has done it.
class XProgram {
 public:
  explicit XProgram(const std::string& display)
      : connection_(xcb_connect(display.c_str(), nullptr), xcb_disconnect),
        screen_(*xcb_setup_roots_iterator(xcb_get_setup(get())).data) {}
  [[nodiscard]] xcb_connection_t* get() const { return connection_.get(); }
  [[nodiscard]] xcb_window_t root() const { return screen_.root; }
  void sync() const { (void)reply(xcb_get_input_focus(get()), xcb_get_input_focus_reply); }

  /// Hidden, of one colour, kept from window managers; where the depth is not the root's, with a visual of
  /// that depth.
  [[nodiscard]] xcb_window_t makeWindow(const xcb_rectangle_t& place, std::uint32_t pixel,
                                        xcb_window_t parent = XCB_NONE, std::uint8_t depth = 24) const {
    const xcb_window_t window = xcb_generate_id(get());
    xcb_create_window_value_list_t values{};
    values.background_pixel = pixel;
    values.override_redirect = 1;
    values.colormap = xcb_generate_id(get());
    xcb_visualid_t visual = screen_.root_visual;
    for (auto depths = xcb_screen_allowed_depths_iterator(&screen_); depths.rem > 0;
         xcb_depth_next(&depths)) {
      if (depths.data->depth == depth && depth != screen_.root_depth) {
        visual = xcb_depth_visuals(depths.data)->visual_id;
      }
    }
    xcb_create_colormap(get(), XCB_COLORMAP_ALLOC_NONE, values.colormap, root(), visual);
    constexpr std::uint32_t kGiven =
        XCB_CW_BACK_PIXEL | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_COLORMAP;
    xcb_create_window_aux(get(), depth, window, parent ? parent : root(), place.x, place.y, place.width,
                          place.height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, visual, kGiven, &values);
    sync();
    return window;
  }
  void map(xcb_window_t window) const { xcb_map_window(get(), window), sync(); }
  void unmap(xcb_window_t window) const { xcb_unmap_window(get(), window), sync(); }
  void reparent(xcb_window_t window, xcb_window_t parent, std::int16_t x, std::int16_t y) const {
    xcb_reparent_window(get(), window, parent, x, y), sync();
  }
  void destroy(xcb_window_t window) const { xcb_destroy_window(get(), window), sync(); }
  /// Either the place (`XCB_CONFIG_WINDOW_X`) or the size (`XCB_CONFIG_WINDOW_WIDTH`).
  void configure(xcb_window_t window, std::uint16_t first, std::array<std::int32_t, 2> values) const {
    xcb_configure_window(get(), window, static_cast<std::uint16_t>(first | (first << 1)), values.data());
    sync();
  }
  void select(xcb_window_t window, std::uint32_t mask) const {
    xcb_change_window_attributes(get(), window, XCB_CW_EVENT_MASK, &mask), sync();
  }
  void fill(xcb_window_t window, std::uint32_t pixel) const {
    const xcb_gcontext_t gc = xcb_generate_id(get());
    const xcb_rectangle_t all{0, 0, 1000, 1000};
    xcb_create_gc(get(), gc, window, XCB_GC_FOREGROUND, &pixel);
    xcb_poly_fill_rectangle(get(), window, gc, 1, &all);
    sync();
  }
  /// The colour on the screen.
  [[nodiscard]] std::uint32_t pixelAt(std::int16_t x, std::int16_t y) const {
    const auto image =
        reply(xcb_get_image(get(), XCB_IMAGE_FORMAT_Z_PIXMAP, root(), x, y, 1, 1, ~0U), xcb_get_image_reply);
    std::uint32_t pixel = 0;
    if (image) std::memcpy(&pixel, xcb_get_image_data(image.get()), sizeof pixel);
    return pixel & kWhite;
  }
  /// That part of the screen; null when some of it lies outside.
  [[nodiscard]] CGImageRef image(const xcb_rectangle_t& place) const {
    const auto found = reply(xcb_get_image(get(), XCB_IMAGE_FORMAT_Z_PIXMAP, root(), place.x, place.y,
                                           place.width, place.height, ~0U),
                             xcb_get_image_reply);
    if (!found) return nullptr;
    CGImageLayout layout;
    layout.width = place.width;
    layout.height = place.height;
    layout.bytesPerRow = place.width * 4U;
    auto bytes = makeHeapBytes(layout.bytesPerRow * layout.height);
    std::memcpy(bytes->data(), xcb_get_image_data(found.get()), bytes->size());
    return std::make_shared<CGImage>(layout, std::move(bytes));
  }
  /// Null for a window that does not exist.
  [[nodiscard]] auto attributes(xcb_window_t window) const {
    return reply(xcb_get_window_attributes(get(), window), xcb_get_window_attributes_reply);
  }
  [[nodiscard]] bool isViewable(xcb_window_t window) const {
    const auto found = attributes(window);
    return found && found->map_state == XCB_MAP_STATE_VIEWABLE;
  }
  [[nodiscard]] xcb_window_t focus() const {
    return reply(xcb_get_input_focus(get()), xcb_get_input_focus_reply)->focus;
  }
  [[nodiscard]] xcb_atom_t atom(std::string_view name) const {
    const auto length = static_cast<std::uint16_t>(name.size());
    return reply(xcb_intern_atom(get(), 0, length, name.data()), xcb_intern_atom_reply)->atom;
  }
  [[nodiscard]] std::string property(xcb_window_t window, std::string_view name) const {
    const auto found =
        reply(xcb_get_property(get(), 0, window, atom(name), XCB_ATOM_ANY, 0, 10000), xcb_get_property_reply);
    return {static_cast<const char*>(xcb_get_property_value(found.get())),
            static_cast<std::size_t>(xcb_get_property_value_length(found.get()))};
  }
  /// A message about the window, to itself or to the window manager.
  void send(xcb_window_t window, bool toItself, std::string_view type,
            std::array<std::uint32_t, 5> data) const {
    xcb_client_message_event_t event{XCB_CLIENT_MESSAGE, 32, 0, window, atom(type), {}};
    std::copy(data.begin(), data.end(), event.data.data32);
    xcb_send_event(get(), 0, toItself ? window : root(), toItself ? 0 : kManagesWindows,
                   reinterpret_cast<const char*>(&event));
    sync();
  }
  void key(xcb_keycode_t code, bool isDown) const {
    xcb_test_fake_input(get(), isDown ? XCB_KEY_PRESS : XCB_KEY_RELEASE, code, 0, XCB_NONE, 0, 0, 0), sync();
  }
  void press(xcb_keycode_t code) const { key(code, true), key(code, false); }
  void mapKey(xcb_keycode_t code, std::array<xcb_keysym_t, 2> symbols) const {
    xcb_change_keyboard_mapping(get(), 1, code, symbols.size(), symbols.data()), sync();
  }
  /// The next event of that type that has come by now; null when there is none.
  template <class Event>
  [[nodiscard]] XcbReply<Event> next(std::uint8_t type) const {
    sync();
    while (XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(get())}) {
      if ((event->response_type & kEventTypeMask) != type) continue;
      return XcbReply<Event>(reinterpret_cast<Event*>(event.release()));
    }
    return nullptr;
  }
  template <class Cookie, class Reply>
  [[nodiscard]] XcbReply<Reply> reply(Cookie cookie, Reply* (*wait)(xcb_connection_t*, Cookie,
                                                                    xcb_generic_error_t**)) const {
    return XcbReply<Reply>(wait(get(), cookie, nullptr));
  }

 private:
  std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> connection_;
  const xcb_screen_t& screen_;
};

}  // namespace QelUtilVideo
