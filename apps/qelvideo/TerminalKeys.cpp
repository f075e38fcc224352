#include "TerminalKeys.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

namespace qelvideo {

namespace {

/// How the terminal was, for whatever ends or stops the program; read by signal handlers.
termios before;
volatile std::sig_atomic_t isChanged = 0;

bool isForeground() { return ::tcgetpgrp(STDIN_FILENO) == ::getpgrp(); }

void restoreTerminal() {
  if (isChanged) ::tcsetattr(STDIN_FILENO, TCSANOW, &before);
}

void changeTerminal() {
  termios changed = before;
  changed.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  changed.c_cc[VMIN] = 1;
  changed.c_cc[VTIME] = 0;
  ::tcsetattr(STDIN_FILENO, TCSANOW, &changed);
}

void onStop(int) {
  const int saved = errno;
  restoreTerminal();
  ::raise(SIGSTOP);
  // Here the person has it continue.
  if (isChanged && isForeground()) changeTerminal();
  errno = saved;
}

void setStopHandler(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTSTP, &action, nullptr);
}

void takeTerminal() {
  if (!::isatty(STDIN_FILENO) || !isForeground() || ::tcgetattr(STDIN_FILENO, &before) != 0) return;
  isChanged = 1;
  static const bool registered = std::atexit(restoreTerminal) == 0;
  static_cast<void>(registered);
  setStopHandler(onStop);
  changeTerminal();
}

}  // namespace

TerminalKeys::TerminalKeys(HostLoop& loop, Handler pressed) : pressed_(std::move(pressed)) {
  takeTerminal();
  // A terminal that is somebody else's for now would stop the program when it is read.
  if (::isatty(STDIN_FILENO) && !isChanged) return;
  watch_ = loop.watch(STDIN_FILENO, POLLIN, [this](short) { read(); });
}

TerminalKeys::~TerminalKeys() {
  if (!isChanged) return;
  restoreTerminal();
  isChanged = 0;
  setStopHandler(SIG_DFL);
}

void TerminalKeys::read() {
  std::array<char, 256> bytes{};
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count < 0 && (errno == EINTR || errno == EAGAIN)) return;
  if (count <= 0) {
    ended_ = true;
    watch_.reset();
    return;
  }
  for (ssize_t i = 0; i < count; ++i) pressed_(std::string(1, bytes[static_cast<std::size_t>(i)]));
}

}  // namespace qelvideo
