// A program of SDL 2's that shows a display of the machine in its window. The main queue gets its time from
// the loop that waits for SDL's connection to the display: nothing polls.

#include "LiveView.h"

#include <SDL2/SDL.h>
#include <SDL2/SDL_syswm.h>
#include <X11/Xlib.h>
#include <poll.h>

#include <array>
#include <cstdlib>
#include <memory>

using namespace QelUtilVideo;

namespace {

/// False: it is to end.
bool handleEvents() {
  SDL_Event event;
  while (SDL_PollEvent(&event) != 0) {
    if (event.type == SDL_QUIT || event.type == SDL_KEYDOWN) return false;
  }
  return true;
}

int show(SDL_Window* program) {
  SDL_SysWMinfo system;
  SDL_VERSION(&system.version);
  if (SDL_GetWindowWMInfo(program, &system) == SDL_FALSE || system.subsystem != SDL_SYSWM_X11)
    return EXIT_FAILURE;
  Display* display = system.info.x11.display;
  // The library has a connection of its own, to which the window has to exist.
  XSync(display, False);
  const auto window = NSWindow::makeInForeignWindow(static_cast<std::uint32_t>(system.info.x11.window));
  if (!window) return EXIT_FAILURE;
  const LiveView live(*window, window->contentView()->bounds());

  MainLoop& queue = MainLoop::main();
  while (handleEvents()) {
    queue.dispatchPending();
    // Xlib may have read an event already.
    if (XPending(display) > 0) continue;
    std::array<pollfd, 2> sources{
        {{ConnectionNumber(display), POLLIN, 0}, {queue.fileDescriptor(), POLLIN, 0}}};
    ::poll(sources.data(), sources.size(), -1);
  }
  window->close();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int, char**) {
  SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11");
  if (SDL_Init(SDL_INIT_VIDEO) != 0) {
    std::fprintf(stderr, "%s\n", SDL_GetError());
    return EXIT_FAILURE;
  }
  int status = EXIT_FAILURE;
  {
    const std::unique_ptr<SDL_Window, decltype(&SDL_DestroyWindow)> program(
        SDL_CreateWindow("A display in SDL 2", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, 640, 400,
                         SDL_WINDOW_RESIZABLE),
        SDL_DestroyWindow);
    if (program) status = show(program.get());
  }
  SDL_Quit();
  return status;
}
