#pragma once

#include "platform/Synchronised.h"
#include "platform/ThreadSafety.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/WindowPropertyReader.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"
#include "platform/linux/x11/windowserver/WindowTree.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// The windows of a server, kept up to date by its events: while nothing changes, asking costs one round
/// trip, and after a change what it concerns is asked again, all requests before the first reply. Follows
/// events only while somebody asks now and then. Any thread.
class WindowTable : public X11EventSink, public std::enable_shared_from_this<WindowTable> {
 public:
  using Pause = std::chrono::steady_clock::duration;

  /// Of a connection that nobody else makes sinks for. The loop outlives the object. After a pause longer
  /// than `longestPause` nobody asks any more.
  [[nodiscard]] static std::shared_ptr<WindowTable> make(std::shared_ptr<X11Connection> connection,
                                                         EventLoop& loop,
                                                         Pause longestPause = std::chrono::seconds(5));
  WindowTable(const WindowTable&) = delete;
  WindowTable& operator=(const WindowTable&) = delete;

  /// What to do when it stops following events; called on the main thread without a lock. Set before anybody
  /// asks.
  void setSleepHandler(std::function<void()> handler) { whenAsleep_ = std::move(handler); }

  /// As they are now; null when the server is lost.
  [[nodiscard]] std::shared_ptr<const WindowList> current();
  /// As they were when somebody asked last, without asking the server; null when they have changed since, as
  /// far as is known. Whoever uses it asks the server for something else, and then whether it `isStill` so.
  [[nodiscard]] std::shared_ptr<const WindowList> lastKnown();
  /// Whether nothing has changed until the last reply that this thread received.
  [[nodiscard]] bool isStill(const std::shared_ptr<const WindowList>& list);

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override;
  void handleLoss() override {}

 protected:
  WindowTable(std::shared_ptr<X11Connection> connection, EventLoop& loop, Pause longestPause);

 private:
  using Time = std::chrono::steady_clock::time_point;

  /// What events said since the table was last brought up to date.
  struct Marks {
    bool isTreeStale = false;
    bool areClientsStale = false;
    std::set<xcb_window_t> geometry = {};
    std::set<xcb_window_t> properties = {};
    std::set<xcb_window_t> others = {};  ///< windows that came or went: what was known is of an earlier one

    [[nodiscard]] bool isEmpty() const {
      return !isTreeStale && !areClientsStale && geometry.empty() && properties.empty() && others.empty();
    }
  };
  struct Events {
    Marks marks = {};
    std::size_t count = 0;  ///< since somebody asked for the list
    Time lastAsked = {};
  };
  /// A window that may be listed, or that such a one lies in.
  struct Watch {
    EventSelection selection;
    bool isStale = true;  ///< geometry and attributes have to be asked for
  };

  [[nodiscard]] bool receiveEvents();
  void noteStructure(const xcb_generic_event_t& event);
  void noteWindow(xcb_window_t window, bool isAnother = false);
  void noteProperty(const xcb_property_notify_event_t& event);
  void sleepWhenNobodyAsks();
  void forgetAll() REQUIRES(mutex_);

  void refresh(Marks marks) REQUIRES(mutex_);
  void forget(const Marks& marks) REQUIRES(mutex_);
  void askTree(bool isTreeStale) REQUIRES(mutex_);
  void takeClients(std::vector<xcb_window_t> named) REQUIRES(mutex_);
  [[nodiscard]] std::vector<xcb_window_t> findClients(const X11Connection::Use& use) REQUIRES(mutex_);
  /// Keeps of the clients that nobody names any more those that lie mapped in a frame: a window manager that
  /// starts has not named them yet.
  void dropFormerClients() REQUIRES(mutex_);
  /// Brings the windows up to date that are stale, looks at those that are new, and follows the parents of
  /// windows below the root's children up to these.
  void askGeometry() REQUIRES(mutex_);
  void askGeometry(const std::vector<xcb_window_t>& windows) REQUIRES(mutex_);
  void askProperties() REQUIRES(mutex_);
  [[nodiscard]] std::vector<xcb_window_t> readProperties() REQUIRES(mutex_);
  void findOwners(const std::vector<xcb_window_t>& windows) REQUIRES(mutex_);
  [[nodiscard]] std::map<std::uint32_t, std::optional<std::uint32_t>> askProcesses(
      const std::vector<xcb_window_t>& windows) REQUIRES(mutex_);
  void forgetOthers() REQUIRES(mutex_);
  [[nodiscard]] std::uint32_t clientNumber(xcb_window_t window) const;

  const std::shared_ptr<X11Connection> connection_;
  EventLoop& loop_;
  const xcb_window_t root_;
  const Pause longestPause_;
  const WindowPropertyReader reader_;
  const bool hasOwners_;       ///< the server tells which process a window belongs to
  const std::string machine_;  ///< the name of this one

  std::function<void()> whenAsleep_ = [] {};

  Synchronised<Events> events_;
  Mutex mutex_;
  std::shared_ptr<const WindowList> list_ GUARDED_BY(mutex_);
  EventSelection rootSelection_ GUARDED_BY(mutex_);
  WindowTree tree_ GUARDED_BY(mutex_);
  std::uint64_t lives_ GUARDED_BY(mutex_) = 0;
  std::map<xcb_window_t, Watch> watches_ GUARDED_BY(mutex_);
  /// Those that were looked through for clients of a window manager without a list.
  std::map<xcb_window_t, EventSelection> searched_ GUARDED_BY(mutex_);
  std::set<xcb_window_t> formerClients_ GUARDED_BY(mutex_);  ///< clients that nobody names any more
};

}  // namespace QelUtilVideo
