#include "platform/linux/x11/X11Connection.h"

#include <xcb/shm.h>
#include <xcb/xfixes.h>

#include <string_view>
#include <utility>

namespace QelUtilVideo {

namespace {

constexpr std::string_view kXWayland = "XWAYLAND";

const xcb_screen_t* screenNumber(const xcb_setup_t& setup, int number) {
  for (auto screens = xcb_setup_roots_iterator(&setup); screens.rem > 0; xcb_screen_next(&screens)) {
    if (number-- == 0) return screens.data;
  }
  return nullptr;
}

bool isAtLeast(std::uint32_t major, std::uint32_t minor, std::uint32_t neededMajor,
               std::uint32_t neededMinor) {
  return major > neededMajor || (major == neededMajor && minor >= neededMinor);
}

bool isPresent(xcb_connection_t* connection, xcb_extension_t& extension) {
  const xcb_query_extension_reply_t* data = xcb_get_extension_data(connection, &extension);
  return data && data->present;
}

/// Servers before 23.1 have no extension to tell them by.
bool hasOutputOfXWayland(const X11Connection::Use& use, xcb_window_t root) {
  const auto resources = use.reply(xcb_randr_get_screen_resources_current(use, root),
                                   xcb_randr_get_screen_resources_current_reply);
  if (!resources || resources->num_outputs == 0) return false;
  const xcb_randr_output_t first = *xcb_randr_get_screen_resources_current_outputs(resources.get());
  const auto output = use.reply(xcb_randr_get_output_info(use, first, resources->config_timestamp),
                                xcb_randr_get_output_info_reply);
  if (!output) return false;
  const std::string_view name(reinterpret_cast<const char*>(xcb_randr_get_output_info_name(output.get())),
                              static_cast<std::size_t>(xcb_randr_get_output_info_name_length(output.get())));
  return name.starts_with(kXWayland);
}

/// Never null: a connection that failed is an object too, and has to be given back like any other.
xcb_connection_t* connect(const char* name, int& screen) {
  // What looks the permission to connect up keeps a file's name in a variable of the whole process.
  static constinit Mutex mutex;
  const MutexLock lock(mutex);
  return xcb_connect(name, &screen);
}

}  // namespace

std::shared_ptr<X11Connection> X11Connection::open(const char* name) {
  struct Opened : X11Connection {
    Opened(std::string displayName, Connection connection, const xcb_screen_t* screen)
        : X11Connection(std::move(displayName), std::move(connection), screen) {}
  };
  const NoPipeSignal noSignal;
  int number = 0;
  Connection connection(connect(name, number));
  if (xcb_connection_has_error(connection.get())) return nullptr;
  const xcb_screen_t* screen = screenNumber(*xcb_get_setup(connection.get()), number);
  if (!screen) return nullptr;
  // Now: the environment may name another one by the time somebody asks.
  const char* opened = name ? name : std::getenv("DISPLAY");
  return std::make_shared<Opened>(opened ? opened : "", std::move(connection), screen);
}

X11Connection::X11Connection(std::string displayName, Connection connection, const xcb_screen_t* screen)
    : displayName_(std::move(displayName)), connection_(std::move(connection)), screen_(screen) {
  queryExtensions();
}

X11Connection::~X11Connection() = default;

void X11Connection::queryExtensions() {
  constexpr std::string_view kEdid = "EDID";
  const Use use(*this);
  xcb_prefetch_extension_data(use, &xcb_randr_id);
  xcb_prefetch_extension_data(use, &xcb_shm_id);
  xcb_prefetch_extension_data(use, &xcb_xfixes_id);
  if (const auto atom =
          use.reply(xcb_intern_atom(use, 0, kEdid.size(), kEdid.data()), xcb_intern_atom_reply)) {
    edidAtom_ = atom->atom;
  }
  if (const auto extension = use.reply(xcb_query_extension(use, kXWayland.size(), kXWayland.data()),
                                       xcb_query_extension_reply)) {
    isXWayland_ = extension->present;
  }
  if (isPresent(use, xcb_randr_id)) {
    const auto version = use.reply(xcb_randr_query_version(use, 1, 5), xcb_randr_query_version_reply);
    hasMonitors_ = version && isAtLeast(version->major_version, version->minor_version, 1, 5);
    firstRandREvent_ = xcb_get_extension_data(use, &xcb_randr_id)->first_event;
    isXWayland_ = isXWayland_ || hasOutputOfXWayland(use, root());
  }
  if (isPresent(use, xcb_shm_id)) {
    const auto version = use.reply(xcb_shm_query_version(use), xcb_shm_query_version_reply);
    hasSharedMemory_ = version != nullptr;
    hasDescriptorPassing_ = version && isAtLeast(version->major_version, version->minor_version, 1, 2);
  }
  if (isPresent(use, xcb_xfixes_id)) {
    const auto version = use.reply(xcb_xfixes_query_version(use, 4, 0), xcb_xfixes_query_version_reply);
    hasCursorImages_ = version != nullptr;
    firstXFixesEvent_ = xcb_get_extension_data(use, &xcb_xfixes_id)->first_event;
  }
}

const xcb_visualtype_t* X11Connection::visual(xcb_visualid_t id) const {
  for (auto depths = xcb_screen_allowed_depths_iterator(screen_); depths.rem > 0; xcb_depth_next(&depths)) {
    for (auto visuals = xcb_depth_visuals_iterator(depths.data); visuals.rem > 0;
         xcb_visualtype_next(&visuals)) {
      if (visuals.data->visual_id == id) return visuals.data;
    }
  }
  return nullptr;
}

bool X11Connection::Use::succeeded(xcb_void_cookie_t checked) const {
  const XcbReply<xcb_generic_error_t> error(xcb_request_check(*this, checked));
  return !error && connection_.isAlive();
}

void X11Connection::addSink(std::weak_ptr<X11EventSink> sink) {
  const MutexLock lock(mutex_);
  std::erase_if(sinks_, [](const auto& other) { return other.expired(); });
  sinks_.push_back(std::move(sink));
}

void X11Connection::handOutEvents() {
  {
    const MutexLock lock(mutex_);
    // Whoever is at it takes these too.
    if (std::exchange(isHandingOut_, true)) return;
  }
  while (const auto event = takeEvent()) {
    // What nobody waited for may fail.
    constexpr std::uint8_t kError = 0;
    if (event->response_type == kError) continue;
    for (const auto& sink : sinks()) sink->handleEvent(*event);
  }
  if (isAlive()) return;
  for (const auto& sink : sinks()) sink->handleLoss();
}

XcbReply<xcb_generic_event_t> X11Connection::takeEvent() {
  const MutexLock lock(mutex_);
  XcbReply<xcb_generic_event_t> event(xcb_poll_for_event(connection_.get()));
  isHandingOut_ = event != nullptr;
  if (!isHandingOut_) handedOut_.notify_all();
  return event;
}

void X11Connection::awaitEvents() {
  const MutexLock lock(mutex_);
  while (isHandingOut_) handedOut_.wait(mutex_);
}

std::vector<std::shared_ptr<X11EventSink>> X11Connection::sinks() {
  const MutexLock lock(mutex_);
  std::vector<std::shared_ptr<X11EventSink>> living;
  for (const auto& sink : sinks_) {
    if (auto alive = sink.lock()) living.push_back(std::move(alive));
  }
  return living;
}

}  // namespace QelUtilVideo
