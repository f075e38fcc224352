#pragma once

#include "platform/Synchronised.h"

#include <deque>
#include <functional>
#include <thread>

namespace QelUtilVideo {

/// Keeps the events of one object in the order in which they happened, whichever threads they happen on,
/// without ever making a thread wait. The owner enqueues an event under its own lock, together with the
/// change of state that the event announces, and delivers after releasing that lock:
///
///     state_.with([&](State& state) { state.started = true; events_.enqueue(tellStarted); });
///     events_.deliver();
///
/// While one thread delivers, it delivers the events of the others too. Any thread.
class EventSequencer {
 public:
  using Event = std::function<void()>;

  /// Puts an event behind those that are waiting. Calls nothing; the owner's lock may be held.
  void enqueue(Event event);
  /// Runs what is waiting, in order, on this thread and without a lock, unless another thread is doing
  /// so: then that thread runs it. Called from inside an event, it runs what is waiting before it
  /// returns. An event that throws is reported to the system log; the next one follows.
  void deliver();

 private:
  struct State {
    std::deque<Event> waiting;
    std::thread::id deliverer;  ///< no thread's ID: nobody delivers
  };
  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
