#include "Terminal.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Failure.h"

namespace qelvideo {

Terminal::Terminal() : drawsProgress_(::isatty(STDERR_FILENO) == 1) {}

void Terminal::note(const std::string& line) {
  const std::lock_guard lock(mutex_);
  eraseProgress();
  std::fputs((line + "\n").c_str(), stderr);
}

void Terminal::progress(const std::string& text) {
  if (!drawsProgress_) return;
  const std::lock_guard lock(mutex_);
  eraseProgress();
  std::fputs(text.c_str(), stderr);
  progressShown_ = true;
}

void Terminal::clearProgress() {
  const std::lock_guard lock(mutex_);
  eraseProgress();
}

void Terminal::result(const std::string& line) {
  const std::lock_guard lock(mutex_);
  eraseProgress();
  const bool written = std::fputs((line + "\n").c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  if (!written && errno != EPIPE) throw systemFailure("cannot write to standard output", errno);
}

void Terminal::eraseProgress() {
  if (!progressShown_) return;
  std::fputs("\r\033[K", stderr);
  progressShown_ = false;
}

}  // namespace qelvideo
