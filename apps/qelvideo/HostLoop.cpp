#include "HostLoop.h"

#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/MediaClock.h>
#include <poll.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <utility>
#include <vector>

#include "Cancellation.h"

namespace qelvideo {

namespace {

/// Lives as long as the process, since a signal may come at any time.
Cancellation& interruptionEvent() {
  static auto& event = *std::make_unique<Cancellation>().release();
  return event;
}

void onSignal(int) {
  const int saved = errno;
  interruptionEvent().set();
  errno = saved;
}

}  // namespace

HostLoop::HostLoop() {
  interruptionEvent();
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigemptyset(&action.sa_mask);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  // A reader that goes away and a file that may not grow are answers of write, not the process's end.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
}

HostLoop::End HostLoop::runUntil(const std::function<bool()>& done, std::optional<double> seconds,
                                 Interruption interruption) {
  QelUtilVideo::MainLoop& mainLoop = QelUtilVideo::MainLoop::main();
  const double end = QelUtilVideo::CACurrentMediaTime() + seconds.value_or(0);
  for (;;) {
    mainLoop.dispatchPending();
    if (done()) return End::done;
    if (interruption == Interruption::heed && interrupted()) return End::interrupted;
    std::optional<double> left;
    if (seconds) {
      left = end - QelUtilVideo::CACurrentMediaTime();
      if (*left <= 0) return End::timedOut;
    }
    wait(left, interruption);
  }
}

/// Waits for work, an interruption or a watched descriptor, and tells the watches.
void HostLoop::wait(std::optional<double> seconds, Interruption interruption) {
  std::vector<pollfd> entries{{QelUtilVideo::MainLoop::main().fileDescriptor(), POLLIN, 0}};
  std::erase_if(watches_, [](const auto& watch) { return watch.expired(); });
  const std::vector<std::weak_ptr<Watch>> asked = watches_;
  for (const auto& weak : asked) {
    const auto watch = weak.lock();
    entries.push_back({watch->descriptor, watch->events, 0});
  }
  if (interruption == Interruption::heed) entries.push_back({interruptionEvent().descriptor(), POLLIN, 0});
  if (::poll(entries.data(), entries.size(), pollTimeout(seconds)) <= 0) return;
  for (std::size_t i = 0; i < asked.size(); ++i) {
    const short events = entries[1 + i].revents;
    if (events == 0) continue;
    if (const auto watch = asked[i].lock()) watch->ready(events);
  }
}

bool HostLoop::interrupted() const { return interruptionEvent().isSet(); }

std::shared_ptr<HostLoop::Watch> HostLoop::watch(int descriptor, short events,
                                                 std::function<void(short events)> ready) {
  auto watch = std::make_shared<Watch>(Watch{descriptor, events, std::move(ready)});
  watches_.push_back(watch);
  return watch;
}

void HostLoop::wake() {
  QelUtilVideo::MainLoop::main().async([] {});
}

}  // namespace qelvideo
