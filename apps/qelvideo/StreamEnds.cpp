#include "StreamEnds.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace qelvideo {

namespace {

bool isPipe(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
}

}  // namespace

StreamEnds::StreamEnds(HostLoop& loop) {
  constexpr short onlyItsEnd = 0;
  const auto ended = [this](short) { end(); };
  if (isPipe(STDIN_FILENO)) {
    watches_.push_back(loop.watch(STDIN_FILENO, POLLIN, [this](short) { dropInput(); }));
  } else if (::isatty(STDIN_FILENO) == 1) {
    watches_.push_back(loop.watch(STDIN_FILENO, onlyItsEnd, ended));
  }
  if (isPipe(STDOUT_FILENO) || ::isatty(STDOUT_FILENO) == 1) {
    watches_.push_back(loop.watch(STDOUT_FILENO, onlyItsEnd, ended));
  }
}

void StreamEnds::dropInput() {
  std::array<char, 4096> bytes;
  const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
  if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) end();
}

void StreamEnds::end() {
  gone_ = true;
  watches_.clear();
}

}  // namespace qelvideo
