#pragma once

#include "platform/TimerSource.h"

#include <chrono>
#include <functional>
#include <map>
#include <optional>

namespace QelUtilVideo {

/// When which function is due. Not synchronised.
class TimerTable {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Token = TimerClock::Token;
  using Function = std::function<void()>;

  /// Seconds as in `TimerClock::start`; a delay that is negative or not a number counts as 0.
  Token add(Time now, double delay, double interval, double leeway, Function fired);
  /// Returns the function, so that it can be let go of outside a lock.
  Function remove(Token token);
  [[nodiscard]] bool empty() const { return timers_.empty(); }
  /// When to look again; absent when nothing is waiting.
  [[nodiscard]] std::optional<Time> wakeTime() const;
  /// The function that has been due longest, absent when none is. It is moved on to its next time after
  /// `now`, or taken out when it has none. Asking for one at a time lets each stop those after it.
  [[nodiscard]] std::optional<Function> takeDue(Time now);

 private:
  struct Timer {
    Time next;
    std::chrono::nanoseconds interval;
    std::chrono::nanoseconds leeway;
    Function fired;
  };
  Token lastToken_ = 0;
  std::map<Token, Timer> timers_;
};

}  // namespace QelUtilVideo
