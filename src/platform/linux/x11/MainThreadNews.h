#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/core/EventLoop.h"

#include <functional>
#include <memory>
#include <utility>

namespace QelUtilVideo {

/// What any thread noted, gathered until the main thread has time for it: however much it was, the handler
/// is called once in a turn of the main loop. `News` is a value that starts empty and takes no more room
/// the longer the main thread stays away.
///
///     auto news = std::make_shared<MainThreadNews<Damage>>(loop, [this](Damage damage) { repair(damage); });
///     news->note([&](Damage& damage) { damage.add(rect); });   // any thread
///     news->stop();                                            // before `this` goes
template <class News>
class MainThreadNews : public std::enable_shared_from_this<MainThreadNews<News>> {
 public:
  using Handler = std::function<void(News)>;

  /// The loop outlives the object. What the handler refers to may go while it runs, after a `stop`.
  MainThreadNews(EventLoop& loop, Handler handler) : loop_(loop), handler_(std::move(handler)) {}

  /// Any thread. `write` gets the news so far, under a lock.
  template <class Write>
  void note(Write&& write) {
    const bool isFirst = pending_.with([&](Pending& pending) {
      std::forward<Write>(write)(pending.news);
      return !std::exchange(pending.isOnItsWay, true);
    });
    if (!isFirst) return;
    loop_.async([weak = this->weak_from_this()] {
      if (const auto alive = weak.lock()) alive->deliver();
    });
  }

  /// The handler is not called any more. Main thread.
  void stop() { handler_ = nullptr; }
  /// Main thread.
  [[nodiscard]] bool isStopped() const { return !handler_; }

 private:
  struct Pending {
    News news;
    bool isOnItsWay = false;
  };

  void deliver() {
    News news = pending_.with([](Pending& pending) {
      pending.isOnItsWay = false;
      return std::exchange(pending.news, {});
    });
    // A copy, which outlasts a stop from inside.
    const Handler handler = handler_;
    if (handler) handler(std::move(news));
  }

  EventLoop& loop_;
  Handler handler_;  ///< of the main thread
  Synchronised<Pending> pending_;
};

}  // namespace QelUtilVideo
