#include "capture/EventSequencer.h"

#include "platform/HostCall.h"

namespace QelUtilVideo {

void EventSequencer::enqueue(Event event) {
  state_.with([&](State& state) { state.waiting.push_back(std::move(event)); });
}

void EventSequencer::deliver() {
  const std::thread::id nobody;
  const std::thread::id self = std::this_thread::get_id();
  const std::thread::id before = state_.with([&](State& state) {
    const std::thread::id deliverer = state.deliverer;
    if (deliverer == nobody) state.deliverer = self;
    return deliverer;
  });
  if (before != nobody && before != self) return;

  const auto next = [&] {
    return state_.with([&](State& state) {
      Event event;
      if (!state.waiting.empty()) {
        event = std::move(state.waiting.front());
        state.waiting.pop_front();
      } else if (before == nobody) {
        state.deliverer = nobody;
      }
      return event;
    });
  };
  while (const Event event = next()) callHost("An event of a capture", event);
}

}  // namespace QelUtilVideo
