#pragma once

#include <signal.h>

#include <ctime>

namespace QelUtilVideo {

/// While it lives, writing to a pipe or socket whose reader has left is an error of the call and not the
/// end of the process. Affects the calling thread only, and leaves its signal mask as it was.
class NoPipeSignal {
 public:
  NoPipeSignal() {
    sigset_t pending;
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  NoPipeSignal(const NoPipeSignal&) = delete;
  NoPipeSignal& operator=(const NoPipeSignal&) = delete;
  ~NoPipeSignal() {
    constexpr timespec kNoWait{};
    if (!wasPending_) sigtimedwait(&pipe_, nullptr, &kNoWait);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

}  // namespace QelUtilVideo
