#include "HostLoop.h"

#include <QelUtilVideo/platform/MainLoop.h>
#include <QelUtilVideo/platform/MediaClock.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <memory>

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
  const bool heed = interruption == Interruption::heed;
  for (;;) {
    mainLoop.dispatchPending();
    if (done()) return End::done;
    if (heed && interrupted()) return End::interrupted;
    std::optional<double> left;
    if (seconds) {
      left = end - QelUtilVideo::CACurrentMediaTime();
      if (*left <= 0) return End::timedOut;
    }
    std::array<pollfd, 2> entries{{{mainLoop.fileDescriptor(), POLLIN, 0}, {-1, POLLIN, 0}}};
    if (heed) entries[1].fd = interruptionEvent().descriptor();
    ::poll(entries.data(), entries.size(), pollTimeout(left));
  }
}

bool HostLoop::interrupted() const { return interruptionEvent().isSet(); }

void HostLoop::wake() {
  QelUtilVideo::MainLoop::main().async([] {});
}

}  // namespace qelvideo
