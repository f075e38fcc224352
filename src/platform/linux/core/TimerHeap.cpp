#include "platform/linux/core/TimerHeap.h"

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

TimerHeap::Token TimerHeap::add(Time now, double delay, double interval, double leeway, Function fired) {
  timers_.emplace(++lastToken_,
                  Timer{now + duration(delay), duration(interval), duration(leeway), std::move(fired)});
  return lastToken_;
}

TimerHeap::Function TimerHeap::remove(Token token) {
  const auto found = timers_.find(token);
  if (found == timers_.end()) return {};
  Function fired = std::move(found->second.fired);
  timers_.erase(found);
  return fired;
}

std::optional<TimerHeap::Time> TimerHeap::wakeTime() const {
  std::optional<Time> earliest;
  for (const auto& [token, timer] : timers_) {
    const Time latest = timer.next + timer.leeway;
    if (!earliest || latest < *earliest) earliest = latest;
  }
  return earliest;
}

std::vector<TimerHeap::Function> TimerHeap::takeDue(Time now) {
  std::vector<std::pair<Time, Function>> due;
  for (auto entry = timers_.begin(); entry != timers_.end();) {
    Timer& timer = entry->second;
    if (timer.next > now) {
      ++entry;
    } else if (timer.interval > timer.interval.zero()) {
      due.emplace_back(timer.next, timer.fired);
      timer.next += ((now - timer.next) / timer.interval + 1) * timer.interval;
      ++entry;
    } else {
      due.emplace_back(timer.next, std::move(timer.fired));
      entry = timers_.erase(entry);
    }
  }
  std::stable_sort(due.begin(), due.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<Function> functions;
  functions.reserve(due.size());
  for (auto& [time, function] : due) functions.push_back(std::move(function));
  return functions;
}

}  // namespace QelUtilVideo
