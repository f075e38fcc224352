// A program with a window and an event loop of its own that shows a display of the machine in the lower
// part of its window: the view lies in a foreign window, and the library's main queue gets its time from
// the program's poll. Any key ends it.

#include "LiveView.h"

#include <poll.h>
#include <xcb/xcb.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace QelUtilVideo;

namespace {

constexpr std::uint16_t stripe = 40;  // pixels at the top that the program draws itself

struct Desktop {
  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection{xcb_connect(nullptr, nullptr),
                                                                          &xcb_disconnect};
  xcb_window_t window = XCB_NONE;

  [[nodiscard]] bool isAlive() const { return xcb_connection_has_error(connection.get()) == 0; }

  void openWindow(std::uint16_t width, std::uint16_t height) {
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection.get())).data;
    window = xcb_generate_id(connection.get());
    const std::array<std::uint32_t, 2> values{0x2E6DA4, XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_EXPOSURE};
    xcb_create_window(connection.get(), XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, width, height, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values.data());
    xcb_map_window(connection.get(), window);
    // The library has a connection of its own, to which the window has to exist.
    std::free(xcb_get_input_focus_reply(connection.get(), xcb_get_input_focus(connection.get()), nullptr));
  }

  /// False: a key was pressed, or the window or its server went away.
  [[nodiscard]] bool handleEvents() const {
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection.get())) {
      const int type = event->response_type & 0x7F;
      std::free(event);
      if (type == XCB_KEY_PRESS) return false;
    }
    return isAlive();
  }
};

}  // namespace

int main() {
  Desktop desktop;
  if (!desktop.isAlive()) {
    std::fputs("There is no X server; is DISPLAY set?\n", stderr);
    return EXIT_FAILURE;
  }
  desktop.openWindow(640, 400);

  const auto window = NSWindow::makeInForeignWindow(desktop.window);
  if (!window) return EXIT_FAILURE;
  CGRect frame = window->contentView()->bounds();
  frame.size.height -= stripe;
  const LiveView live(*window, frame);

  MainLoop& queue = MainLoop::main();
  while (desktop.handleEvents()) {
    queue.dispatchPending();
    std::array<pollfd, 2> sources{{{xcb_get_file_descriptor(desktop.connection.get()), POLLIN, 0},
                                   {queue.fileDescriptor(), POLLIN, 0}}};
    ::poll(sources.data(), sources.size(), -1);
  }

  window->close();
  return EXIT_SUCCESS;
}
