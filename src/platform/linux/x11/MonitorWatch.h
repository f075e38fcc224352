#pragma once

#include "platform/CallSafely.h"
#include "platform/ThreadSafety.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/Monitors.h"

#include <QelUtilVideo/platform/NSScreen.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// The monitors as they stand, asked for again only after the server said that they changed; and a call
/// on the main thread after each change. Any thread.
class MonitorWatch : public X11EventSink, public std::enable_shared_from_this<MonitorWatch> {
 public:
  struct Arrangement {
    std::vector<Monitor> monitors;
    std::vector<std::shared_ptr<NSScreen>> screens;  ///< one for each monitor
    std::uint64_t generation = 0;

    [[nodiscard]] const Monitor* find(std::uint32_t displayID) const;
  };

  /// `changed` is called on the main thread, once for a burst of changes; the loss of the server is a
  /// change to no monitors. Somebody else has to hand out the connection's events.
  static std::shared_ptr<MonitorWatch> make(std::shared_ptr<X11Connection> connection, EventLoop& loop,
                                            std::function<void()> changed, TroubleHandler trouble);
  /// No call of `changed` begins after this, except one that is on its way. Before the loop goes.
  void stop();

  /// Never null. The screen objects stay the same while nothing changes.
  [[nodiscard]] std::shared_ptr<const Arrangement> current();

  // X11EventSink
  void handleEvent(const xcb_generic_event_t& event) override;
  void handleLoss() override;

 protected:
  MonitorWatch(std::shared_ptr<X11Connection> connection, EventLoop& loop, std::function<void()> changed,
               TroubleHandler trouble);

 private:
  using Time = std::chrono::steady_clock::time_point;

  void begin();
  void noteChange();
  void settle();
  /// Whether anybody was handed an arrangement other than the reported one; reports the last one.
  bool takeUnreported();
  bool isStillChanging();
  /// How long to wait still; absent when the burst is over.
  std::optional<std::chrono::duration<double>> timeToSettle();
  void startTimer(std::chrono::duration<double> delay);

  const std::shared_ptr<X11Connection> connection_;
  EventLoop& loop_;
  const std::function<void()> changed_;
  const TroubleHandler trouble_;
  EventSelection selection_;

  Mutex mutex_;
  std::uint64_t generation_ GUARDED_BY(mutex_) = 1;  ///< grows with every change
  std::shared_ptr<const Arrangement> arrangement_ GUARDED_BY(mutex_) = std::make_shared<Arrangement>();
  std::vector<Monitor> reported_ GUARDED_BY(mutex_);  ///< what the last call of `changed_` was about
  bool isUnreported_ GUARDED_BY(mutex_) = false;      ///< something else than that was handed out since
  bool isSettling_ GUARDED_BY(mutex_) = false;
  bool isLost_ GUARDED_BY(mutex_) = false;
  bool isStopped_ GUARDED_BY(mutex_) = false;
  Time firstChange_ GUARDED_BY(mutex_);
  Time lastChange_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
