#pragma once

#include "platform/CallSafely.h"
#include "platform/TimerSource.h"

#include <memory>

namespace QelUtilVideo {

/// A clock for timers that need no main loop: a thread that exists while a timer does. Any thread.
class TimerThread final : public TimerClock {
 public:
  explicit TimerThread(TroubleHandler trouble);
  ~TimerThread() override;  ///< stops all timers; waits for nobody

  Token start(double delay, double interval, double leeway, std::function<void()> fired) override;
  void stop(Token token) override;

 private:
  class State;
  std::shared_ptr<State> state_;
};

}  // namespace QelUtilVideo
