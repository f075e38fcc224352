#include "Cancellation.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>

#include "Failure.h"

namespace qelvideo {

Cancellation::Cancellation() : event_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!event_) throw systemFailure("cannot make an event descriptor", errno);
}

void Cancellation::set() noexcept {
  const std::uint64_t one = 1;
  // Fails only when the event is set many times over already.
  static_cast<void>(::write(event_.get(), &one, sizeof one));
}

bool Cancellation::isSet() const {
  pollfd entry{event_.get(), POLLIN, 0};
  return ::poll(&entry, 1, 0) > 0;
}

bool Cancellation::waitFor(int descriptor, short events) const {
  std::array<pollfd, 2> entries{{{descriptor, events, 0}, {event_.get(), POLLIN, 0}}};
  while (::poll(entries.data(), entries.size(), -1) < 0 && errno == EINTR) continue;
  return entries[1].revents == 0;
}

bool Cancellation::pause(double seconds) const {
  pollfd entry{event_.get(), POLLIN, 0};
  return ::poll(&entry, 1, pollTimeout(seconds)) <= 0;
}

int pollTimeout(std::optional<double> seconds) {
  if (!seconds) return -1;
  constexpr double longest = 24 * 3600 * 1000.0;
  return static_cast<int>(std::ceil(std::fmin(std::fmax(*seconds * 1000, 0), longest)));
}

}  // namespace qelvideo
