#pragma once

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include "platform/ThreadSafety.h"
#include "platform/linux/core/NoPipeSignal.h"

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace QelUtilVideo {

struct FreeReply {
  void operator()(void* reply) const { std::free(reply); }
};
template <class T>
using XcbReply = std::unique_ptr<T, FreeReply>;

/// Without the bit that marks events which another client sent.
constexpr std::uint8_t kEventTypeMask = 0x7F;

/// What an X connection tells those that watch it. Called on whichever thread has just used the
/// connection, without a lock held: it must be quick and must not use the connection.
class X11EventSink {
 public:
  virtual ~X11EventSink() = default;
  virtual void handleEvent(const xcb_generic_event_t& event) = 0;
  /// The server went away. May be called more than once.
  virtual void handleLoss() = 0;
};

/// A connection to an X server, its default screen and what its server offers. Any thread. Errors of the
/// server are answers; after a loss every reply is null.
///
/// Requests are made inside a `Use`, which one thread has at a time: of several threads that wait for
/// replies when the server dies, libxcb 1.15 may leave some waiting for ever. Its end hands out the events
/// that came along with the replies: a reply takes the events before it off the socket, where nobody else
/// would see them.
///
///     const X11Connection::Use use(*connection);
///     const auto pointer = use.reply(xcb_query_pointer(use, connection->root()), xcb_query_pointer_reply);
class X11Connection {
 public:
  /// Connects to the display called `name` (null: the one that DISPLAY names). Null when that fails.
  static std::shared_ptr<X11Connection> open(const char* name = nullptr);

  X11Connection(const X11Connection&) = delete;
  X11Connection& operator=(const X11Connection&) = delete;
  ~X11Connection();

  /// May be made inside another one of the same thread, which then hands out the events.
  class SCOPED_CAPABILITY Use {
   public:
    explicit Use(X11Connection& connection) ACQUIRE(connection.useMutex_) : connection_(connection) {
      connection_.useMutex_.lock();
      connection_.uses_ += 1;
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() RELEASE() {
      const bool isOutermost = --connection_.uses_ == 0;
      connection_.useMutex_.unlock();
      if (isOutermost) connection_.handOutEvents();
    }

    operator xcb_connection_t*() const { return connection_.connection_.get(); }  // NOLINT: by design

    /// Waits for a reply; null after an error.
    template <class Cookie, class Reply>
    [[nodiscard]] XcbReply<Reply> reply(Cookie cookie, Reply* (*wait)(xcb_connection_t*, Cookie,
                                                                      xcb_generic_error_t**)) const {
      xcb_generic_error_t* error = nullptr;
      XcbReply<Reply> answer(wait(*this, cookie, &error));
      const XcbReply<xcb_generic_error_t> refused(error);
      return answer;
    }
    /// Waits until a checked request without a reply was carried out; false after an error.
    [[nodiscard]] bool succeeded(xcb_void_cookie_t checked) const;

   private:
    NoPipeSignal noSignal_;  // a server that dies must not take the process along
    X11Connection& connection_;
  };

  /// The server, as `DISPLAY` would name it.
  [[nodiscard]] const std::string& displayName() const { return displayName_; }
  [[nodiscard]] bool isAlive() const { return xcb_connection_has_error(connection_.get()) == 0; }
  [[nodiscard]] int fileDescriptor() const { return xcb_get_file_descriptor(connection_.get()); }
  [[nodiscard]] const xcb_setup_t& setup() const { return *xcb_get_setup(connection_.get()); }
  [[nodiscard]] const xcb_screen_t& screen() const { return *screen_; }
  [[nodiscard]] xcb_window_t root() const { return screen_->root; }
  /// The visual of that ID on the default screen; null when there is none.
  [[nodiscard]] const xcb_visualtype_t* visual(xcb_visualid_t id) const;

  /// RandR 1.5 or later, which knows monitors.
  [[nodiscard]] bool hasMonitors() const { return hasMonitors_; }
  [[nodiscard]] bool hasCursorImages() const { return hasCursorImages_; }
  [[nodiscard]] bool hasSharedMemory() const { return hasSharedMemory_; }
  /// MIT-SHM 1.2 or later, which takes memory by file descriptor.
  [[nodiscard]] bool hasDescriptorPassing() const { return hasDescriptorPassing_; }
  /// The server's root window is not the desktop that its user sees, but stays black.
  [[nodiscard]] bool isXWayland() const { return isXWayland_; }
  /// The number of RandR's first event.
  [[nodiscard]] std::uint8_t firstRandREvent() const { return firstRandREvent_; }
  /// The number of XFixes' first event.
  [[nodiscard]] std::uint8_t firstXFixesEvent() const { return firstXFixesEvent_; }
  /// The name of the property in which outputs keep their EDID.
  [[nodiscard]] xcb_atom_t edidAtom() const { return edidAtom_; }

  /// What `EventSelection` keeps: a mask for each that wants events of a window.
  [[nodiscard]] std::multimap<xcb_window_t, std::uint32_t>& eventMasks(const Use&) REQUIRES(useMutex_) {
    return eventMasks_;
  }
  /// Tells the sink about events, in their order, and the loss of the connection from now on, as long as it
  /// lives.
  void addSink(std::weak_ptr<X11EventSink> sink);
  /// Waits until the sinks have got the events that came before, which another thread may be handing out.
  /// Not inside a `Use`, nor under a lock that a sink takes.
  void awaitEvents();

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };
  using Connection = std::unique_ptr<xcb_connection_t, Disconnect>;

  X11Connection(std::string displayName, Connection connection, const xcb_screen_t* screen);
  void queryExtensions();
  void handOutEvents();
  /// The next event to hand out; null when this was the last.
  [[nodiscard]] XcbReply<xcb_generic_event_t> takeEvent();
  [[nodiscard]] std::vector<std::shared_ptr<X11EventSink>> sinks();

  RecursiveMutex useMutex_;
  int uses_ GUARDED_BY(useMutex_) = 0;  ///< one inside the other, of the thread whose turn it is
  std::multimap<xcb_window_t, std::uint32_t> eventMasks_ GUARDED_BY(useMutex_);

  const std::string displayName_;
  Connection connection_;
  const xcb_screen_t* screen_;
  bool hasMonitors_ = false;
  bool hasCursorImages_ = false;
  bool hasSharedMemory_ = false;
  bool hasDescriptorPassing_ = false;
  bool isXWayland_ = false;
  std::uint8_t firstRandREvent_ = 0;
  std::uint8_t firstXFixesEvent_ = 0;
  xcb_atom_t edidAtom_ = XCB_ATOM_NONE;

  Mutex mutex_;
  std::vector<std::weak_ptr<X11EventSink>> sinks_ GUARDED_BY(mutex_);
  bool isHandingOut_ GUARDED_BY(mutex_) = false;
  ConditionVariable handedOut_;
};

}  // namespace QelUtilVideo
