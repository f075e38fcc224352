#pragma once

#include "platform/Dispatch.h"

namespace QelUtilVideo {

/// Calls functions at their times. Any thread.
class TimerClock {
 public:
  using Token = std::uint64_t;
  virtual ~TimerClock() = default;
  /// Calls `fired` after `delay` seconds, then every `interval` seconds (0: only once); each call may be
  /// late by `leeway`, and calls that got no time become one. `fired` must be quick.
  virtual Token start(double delay, double interval, double leeway, std::function<void()> fired) = 0;
  /// No call begins after this returns, except one that had already begun. Unknown tokens do nothing.
  virtual void stop(Token token) = 0;
};

/// A timer source whose handler runs on `queue`, driven by `clock`. An interval that is not a finite
/// number above 0 makes it fire once.
[[nodiscard]] std::unique_ptr<DispatchTimerSource> makeTimerSourceOn(
    const std::shared_ptr<DispatchQueue>& queue, const std::shared_ptr<TimerClock>& clock);

}  // namespace QelUtilVideo
