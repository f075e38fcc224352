#include "TerminalMode.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>

#include "Failure.h"

namespace qelvideo {

namespace {

/// Signals that end the process, besides those that the host loop answers.
constexpr std::array endingSignals{SIGHUP, SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};

// What signal handlers need, which find no object.
constinit std::atomic<bool> taken{false};
termios before{};  // written only while the terminal is not taken
constinit std::atomic<int> continuedEvent{-1};
struct sigaction stopBefore {};
struct sigaction continueBefore {};
std::array<struct sigaction, endingSignals.size()> endingBefore{};

/// Calling this in the background would stop the process. A terminal that is not the process's own knows
/// no foreground.
bool isForeground() {
  const pid_t group = ::tcgetpgrp(STDIN_FILENO);
  return group == ::getpgrp() || (group < 0 && errno == ENOTTY);
}

void tellContinued() {
  const std::uint64_t one = 1;
  // Fails only when nobody listens, or when it was told already.
  static_cast<void>(!::write(continuedEvent, &one, sizeof one));
}

struct sigaction actionOf(void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  return action;
}

void onStop(int signal);

void handleStop() {
  // Not held back while it is handled: it is raised from there.
  const struct sigaction action = actionOf(onStop, static_cast<int>(SA_NODEFER | SA_RESTART));
  ::sigaction(SIGTSTP, &action, nullptr);
}

void onStop(int signal) {
  const int saved = errno;
  TerminalMode::putBack();
  const struct sigaction standard = actionOf(SIG_DFL, 0);
  ::sigaction(signal, &standard, nullptr);
  ::raise(signal);
  // The process goes on here, or was one that cannot be stopped.
  handleStop();
  tellContinued();
  errno = saved;
}

void onContinue(int) {
  const int saved = errno;
  tellContinued();
  errno = saved;
}

void onEnd(int signal) {
  TerminalMode::putBack();
  for (std::size_t i = 0; i < endingSignals.size(); ++i) {
    if (endingSignals[i] == signal) ::sigaction(signal, &endingBefore[i], nullptr);
  }
  // Comes when this handler returns.
  ::raise(signal);
}

bool isIgnored(int signal) {
  struct sigaction action {};
  ::sigaction(signal, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

void handleSignals() {
  ::sigaction(SIGTSTP, nullptr, &stopBefore);
  if (!isIgnored(SIGTSTP)) handleStop();
  const struct sigaction goOn = actionOf(onContinue, static_cast<int>(SA_RESTART));
  ::sigaction(SIGCONT, &goOn, &continueBefore);
  const struct sigaction end = actionOf(onEnd, 0);
  for (std::size_t i = 0; i < endingSignals.size(); ++i) {
    ::sigaction(endingSignals[i], nullptr, &endingBefore[i]);
    if (!isIgnored(endingSignals[i])) ::sigaction(endingSignals[i], &end, nullptr);
  }
}

void leaveSignals() {
  ::sigaction(SIGTSTP, &stopBefore, nullptr);
  ::sigaction(SIGCONT, &continueBefore, nullptr);
  for (std::size_t i = 0; i < endingSignals.size(); ++i) {
    ::sigaction(endingSignals[i], &endingBefore[i], nullptr);
  }
}

}  // namespace

TerminalMode::TerminalMode(HostLoop& loop, std::function<void()> changed)
    : changed_(std::move(changed)), continued_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!continued_) throw systemFailure("cannot make an event descriptor", errno);
  watch_ = loop.watch(continued_.get(), POLLIN, [this](short) {
    std::uint64_t count = 0;
    static_cast<void>(!::read(continued_.get(), &count, sizeof count));
    take();
    changed_();
  });
  static const bool isRegistered = std::atexit([] { putBack(); }) == 0;
  static_cast<void>(isRegistered);
  continuedEvent = continued_.get();
  handleSignals();
  take();
}

TerminalMode::~TerminalMode() {
  putBack();
  leaveSignals();
  continuedEvent = -1;
}

bool TerminalMode::isTaken() const { return taken; }

void TerminalMode::take() {
  if (taken || !isForeground() || ::tcgetattr(STDIN_FILENO, &before) != 0) return;
  termios keyByKey = before;
  keyByKey.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  // A read never waits: another process may have taken what poll has seen.
  keyByKey.c_cc[VMIN] = 0;
  keyByKey.c_cc[VTIME] = 0;
  // First, so that a signal in between puts back what there may be to put back.
  taken = true;
  if (::tcsetattr(STDIN_FILENO, TCSANOW, &keyByKey) != 0) taken = false;
}

void TerminalMode::putBack() noexcept {
  if (taken.exchange(false) && isForeground()) ::tcsetattr(STDIN_FILENO, TCSANOW, &before);
}

}  // namespace qelvideo
