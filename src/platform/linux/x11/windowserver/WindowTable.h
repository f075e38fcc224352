#pragma once

#include "platform/Synchronised.h"
#include "platform/ThreadSafety.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/EventSelection.h"
#include "platform/linux/x11/X11Connection.h"
#include "platform/linux/x11/windowserver/Applications.h"
#include "platform/linux/x11/windowserver/WindowPropertyReader.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// The windows of a server, kept up to date by its events: while nothing changes, asking costs one round
/// trip, and after a change what it concerns is asked again, all requests before the first reply. Follows
/// events only while somebody asks now and then. Any thread.
class WindowTable : public X11EventSink, public std::enable_shared_from_this<WindowTable> {
 public:
  /// Of a connection that nobody else makes sinks for. The loop outlives the object.
  [[nodiscard]] static std::shared_ptr<WindowTable> make(std::shared_ptr<X11Connection> connection,
                                                         EventLoop& loop);
  WindowTable(const WindowTable&) = delete;
  WindowTable& operator=(const WindowTable&) = delete;

  /// What to do when it stops following events; called on the main thread without a lock. Set before anybody
  /// asks.
  void setSleepHandler(std::function<void()> handler) { whenAsleep_ = std::move(handler); }

  /// As they are now; null when the server is lost.
  [[nodiscard]] std::shared_ptr<const WindowList> current();

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override;
  void handleLoss() override {}

 protected:
  WindowTable(std::shared_ptr<X11Connection> connection, EventLoop& loop);

 private:
  /// What events said since the table was last brought up to date.
  struct Marks {
    bool isTreeStale = true;
    bool areClientsStale = true;
    std::set<xcb_window_t> geometry;
    std::set<xcb_window_t> properties;
    std::size_t events = 0;  ///< since somebody asked for the list

    [[nodiscard]] bool isEmpty() const {
      return !isTreeStale && !areClientsStale && geometry.empty() && properties.empty();
    }
  };
  /// What is known of one window.
  struct Entry {
    EventSelection selection;
    bool isStale = true;  ///< geometry and attributes have to be asked for
    bool isGone = false;
    xcb_window_t parent = XCB_NONE;
    int x = 0;  ///< of its border, from its parent's content
    int y = 0;
    int width = 0;  ///< of its content
    int height = 0;
    int border = 0;
    std::uint8_t depth = 0;
    xcb_visualid_t visual = 0;
    bool isInputOnly = false;
    bool isMapped = false;
    bool isViewable = false;  ///< and its ancestors are mapped too
    bool isOverrideRedirect = false;

    std::optional<WindowProperties> properties;  ///< of those that are listed
    std::optional<std::int32_t> process;
    Application application;
  };
  using Entries = std::map<xcb_window_t, Entry>;

  [[nodiscard]] bool receiveEvents();
  void noteStructure(const xcb_generic_event_t& event);
  void noteWindow(xcb_window_t window);
  void sleepWhenNobodyAsks();

  void refresh(Marks marks) REQUIRES(mutex_);
  void askTree(bool isTreeStale) REQUIRES(mutex_);
  /// Keeps of the clients that nobody names any more those that lie mapped in a frame: a window manager that
  /// starts has not named them yet.
  void dropFormerClients() REQUIRES(mutex_);
  [[nodiscard]] std::vector<xcb_window_t> findClients(const X11Connection::Use& use) REQUIRES(mutex_);
  /// Brings the windows up to date whose entries are stale, makes those that are missing, and follows the
  /// parents of windows below the root's children up to these.
  void askGeometry() REQUIRES(mutex_);
  void askGeometry(const std::vector<xcb_window_t>& windows) REQUIRES(mutex_);
  void askProperties() REQUIRES(mutex_);
  void findOwners(const std::vector<xcb_window_t>& windows) REQUIRES(mutex_);
  [[nodiscard]] std::map<std::uint32_t, std::optional<std::uint32_t>> askProcesses(
      const std::vector<xcb_window_t>& windows) REQUIRES(mutex_);
  void forgetOthers() REQUIRES(mutex_);
  [[nodiscard]] std::shared_ptr<const WindowList> compose() REQUIRES(mutex_);

  [[nodiscard]] const Entry* find(xcb_window_t window) const REQUIRES(mutex_);
  /// The root's child in which a window lies; none for one whose way up is not known.
  [[nodiscard]] xcb_window_t topOf(xcb_window_t window) const REQUIRES(mutex_);
  /// Those of the windows that are listed, each with its top.
  struct Listed {
    std::vector<std::pair<xcb_window_t, xcb_window_t>> onScreen;  ///< front to back
    std::vector<std::pair<xcb_window_t, xcb_window_t>> offScreen;
  };
  [[nodiscard]] Listed listed() const REQUIRES(mutex_);
  [[nodiscard]] WindowRecord record(xcb_window_t window, xcb_window_t top) const REQUIRES(mutex_);
  [[nodiscard]] PixelRect areaOf(xcb_window_t window) const REQUIRES(mutex_);
  [[nodiscard]] std::uint32_t clientNumber(xcb_window_t window) const;

  const std::shared_ptr<X11Connection> connection_;
  EventLoop& loop_;
  const xcb_window_t root_;
  const WindowPropertyReader reader_;
  bool hasOwners_ = false;  ///< the server tells which process a window belongs to

  std::function<void()> whenAsleep_ = [] {};

  Synchronised<Marks> marks_;
  Mutex mutex_;
  std::shared_ptr<const WindowList> list_ GUARDED_BY(mutex_);
  EventSelection rootSelection_ GUARDED_BY(mutex_);
  std::vector<xcb_window_t> children_ GUARDED_BY(mutex_);    ///< the root's, back to front
  std::vector<xcb_window_t> clients_ GUARDED_BY(mutex_);     ///< those that a window manager looks after
  std::set<xcb_window_t> formerClients_ GUARDED_BY(mutex_);  ///< of these, those that nobody names any more
  Entries entries_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
