#include "platform/linux/core/TimerTable.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace QelUtilVideo {
namespace {

std::chrono::nanoseconds duration(double seconds) {
  constexpr double longest = 1e9;  // 31 years; more would overflow when added to the time
  if (!(seconds > 0)) return {};
  return std::chrono::nanoseconds(std::llround(std::min(seconds, longest) * 1e9));
}

}  // namespace

TimerTable::Token TimerTable::add(Time now, double delay, double interval, double leeway, Function fired) {
  timers_.emplace(++lastToken_,
                  Timer{now + duration(delay), duration(interval), duration(leeway), std::move(fired)});
  return lastToken_;
}

TimerTable::Function TimerTable::remove(Token token) {
  const auto found = timers_.find(token);
  if (found == timers_.end()) return {};
  Function fired = std::move(found->second.fired);
  timers_.erase(found);
  return fired;
}

std::optional<TimerTable::Time> TimerTable::wakeTime() const {
  std::optional<Time> earliest;
  for (const auto& [token, timer] : timers_) {
    const Time latest = timer.next + timer.leeway;
    if (!earliest || latest < *earliest) earliest = latest;
  }
  return earliest;
}

std::optional<TimerTable::Function> TimerTable::takeDue(Time now) {
  const auto found = std::ranges::min_element(
      timers_, {}, [](const auto& entry) { return std::pair(entry.second.next, entry.first); });
  if (found == timers_.end() || found->second.next > now) return std::nullopt;
  Timer& timer = found->second;
  if (timer.interval == timer.interval.zero()) return remove(found->first);
  timer.next += ((now - timer.next) / timer.interval + 1) * timer.interval;
  return timer.fired;
}

}  // namespace QelUtilVideo
