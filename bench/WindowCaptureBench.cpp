// What pictures of windows cost, on an X server with a screen of at least 1920 × 1080 pixels that DISPLAY
// names, best a fresh one:
//
//   xvfb-run -s "-noreset -screen 0 2000x1200x24" build/bench/bin/window_capture_bench
//
// `composeWindow` against `grabScreen`, which moves as many pixels from the server and does nothing else, and
// `probeWindows` against `fetchWindows`; `listAnew`, the first list of a program, of few windows and of many.
// `server_us` is the server's CPU time for each round, which the CPU column does not have.

#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/DrawableImage.h"
#include "platform/linux/x11/X11EventPump.h"
#include "platform/linux/x11/windowserver/X11WindowServer.h"

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace QelUtilVideo;

constexpr std::uint16_t kWidth = 1920;
constexpr std::uint16_t kHeight = 1080;
constexpr std::size_t kManyWindows = 30;

/// The CPU time of the process at the other end, in microseconds; 0 when it cannot be told.
double cpuTimeOfServer(const X11Connection& connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(connection.fileDescriptor(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return 0;
  std::ifstream schedule("/proc/" + std::to_string(peer.pid) + "/schedstat");
  double nanoseconds = 0;
  schedule >> nanoseconds;
  return nanoseconds / 1000;
}

/// The window server, and another program with windows on it.
class Desktop {
 public:
  Desktop() {
    if (!connection_ || !program_) return;
    pump_.emplace(connection_, loop_);
    windows_.emplace(connection_, loop_);
    pool_.emplace(connection_);
  }
  explicit operator bool() const { return windows_.has_value(); }
  [[nodiscard]] X11Connection& connection() { return *connection_; }
  [[nodiscard]] X11WindowServer& windows() { return *windows_; }
  [[nodiscard]] ShmPool& pool() { return *pool_; }

  [[nodiscard]] CGWindowID show(const xcb_rectangle_t& place) {
    const X11Connection::Use use(*program_);
    const xcb_window_t window = xcb_generate_id(use);
    const xcb_screen_t& screen = program_->screen();
    const std::array<std::uint32_t, 2> values{window * 2654435761U, 1};
    xcb_create_window(use, XCB_COPY_FROM_PARENT, window, screen.root, place.x, place.y, place.width,
                      place.height, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen.root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values.data());
    xcb_map_window(use, window);
    (void)use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply);
    return window;
  }
  /// As a window manager tells which windows it looks after.
  void manage(const std::vector<CGWindowID>& windows) {
    const X11Connection::Use use(*program_);
    const auto atom = use.reply(xcb_intern_atom(use, 0, 16, "_NET_CLIENT_LIST"), xcb_intern_atom_reply);
    xcb_change_property(use, XCB_PROP_MODE_REPLACE, program_->root(), atom->atom, XCB_ATOM_WINDOW, 32,
                        static_cast<std::uint32_t>(windows.size()), windows.data());
    (void)use.reply(xcb_get_input_focus(use), xcb_get_input_focus_reply);
  }

 private:
  EventLoop loop_{[](const std::string&) {}};
  std::shared_ptr<X11Connection> connection_ = X11Connection::open();
  std::shared_ptr<X11Connection> program_ = X11Connection::open();
  std::optional<X11EventPump> pump_;
  std::optional<X11WindowServer> windows_;
  std::optional<ShmPool> pool_;
};

/// Runs `round` again and again, and counts what the server spends on it.
template <class Round>
void measure(benchmark::State& state, Desktop& desktop, Round round) {
  const double before = cpuTimeOfServer(desktop.connection());
  for (auto _ : state) {
    if (!round()) return state.SkipWithError("the server gives no picture");
  }
  state.counters["server_us"] =
      benchmark::Counter(cpuTimeOfServer(desktop.connection()) - before, benchmark::Counter::kAvgIterations);
}

void grabScreen(benchmark::State& state) {
  Desktop desktop;
  if (!desktop) return state.SkipWithError("no X server");
  (void)desktop.show({0, 0, kWidth, kHeight});
  measure(state, desktop, [&] {
    return copyDrawable(desktop.connection(), desktop.pool(), desktop.connection().root(),
                        {0, 0, kWidth, kHeight}) != nullptr;
  });
}

/// With as many menus over it as the argument says.
void composeWindow(benchmark::State& state) {
  Desktop desktop;
  if (!desktop) return state.SkipWithError("no X server");
  std::vector<CGWindowID> windows{desktop.show({0, 0, kWidth, kHeight})};
  for (std::int16_t i = 0; i < state.range(0); ++i) {
    windows.push_back(desktop.show({static_cast<std::int16_t>(100 + 250 * i), 100, 300, 400}));
  }
  measure(state, desktop, [&] {
    return desktop.windows().CGWindowListCreateImageFromArray(CGRectMake(0, 0, kWidth, kHeight), windows,
                                                              kCGWindowImageBestResolution) != nullptr;
  });
}

/// As the library lists windows: whether each has an image; and its pixels, where they are wanted.
void listWindows(benchmark::State& state, bool isFetching) {
  Desktop desktop;
  if (!desktop) return state.SkipWithError("no X server");
  std::vector<CGWindowID> windows;
  while (windows.size() < kManyWindows) windows.push_back(desktop.show({0, 0, kWidth, kHeight}));
  measure(state, desktop, [&] {
    bool isWhole = true;
    for (const CGWindowID window : windows) {
      const auto image = desktop.windows().CGWindowListCreateImage(
          CGRectNull, kCGWindowListOptionIncludingWindow, window,
          kCGWindowImageBoundsIgnoreFraming | kCGWindowImageShouldBeOpaque | kCGWindowImageBestResolution);
      isWhole = isWhole && image && (!isFetching || image->dataProvider()->bytes());
    }
    return isWhole;
  });
}

/// As a program does that has just started.
void listAnew(benchmark::State& state) {
  Desktop desktop;
  if (!desktop) return state.SkipWithError("no X server");
  std::vector<CGWindowID> shown;
  for (std::int64_t i = 0; i < state.range(0); ++i) shown.push_back(desktop.show({0, 0, 200, 200}));
  desktop.manage(shown);
  EventLoop loop([](const std::string&) {});
  const auto connection = X11Connection::open();
  const X11EventPump pump(connection, loop);
  measure(state, desktop, [&] {
    X11WindowServer windows(connection, loop);
    return windows.CGWindowListCopyWindowInfo(kCGWindowListOptionOnScreenOnly, 0).has_value();
  });
}

void probeWindows(benchmark::State& state) { listWindows(state, false); }
void fetchWindows(benchmark::State& state) { listWindows(state, true); }

BENCHMARK(grabScreen)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(composeWindow)->Arg(0)->Arg(3)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(listAnew)->Arg(6)->Arg(60)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(probeWindows)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(fetchWindows)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
