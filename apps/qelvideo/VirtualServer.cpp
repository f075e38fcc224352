#include "VirtualServer.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "Cancellation.h"
#include "Failure.h"
#include "FileDescriptor.h"

namespace qelvideo {

namespace {

/// Seconds that a server gets to come up.
constexpr double startTimeout = 20;

/// Reads the number that the server writes, with a line feed, once it accepts clients.
std::string readDisplayNumber(int descriptor) {
  std::string number;
  for (;;) {
    pollfd entry{descriptor, POLLIN, 0};
    char character = 0;
    if (::poll(&entry, 1, pollTimeout(startTimeout)) <= 0 || ::read(descriptor, &character, 1) != 1)
      return {};
    if (character == '\n') return number;
    number += character;
  }
}

}  // namespace

VirtualServer::VirtualServer(const std::string& screen) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw systemFailure("cannot make a pipe", errno);
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  process_.emplace(std::vector<std::string>{"Xvfb", "-screen", "0", screen, "-noreset", "-nolisten", "tcp",
                                            "-displayfd", "3"},
                   writing.get());
  // A server that ends early is seen by the pipe's end only when nobody else holds it.
  writing = FileDescriptor();
  const std::string number = readDisplayNumber(reading.get());
  if (number.empty()) throw Failure("Xvfb did not come up; try `Xvfb :99` to see what it says");
  display_ = ":" + number;
}

}  // namespace qelvideo
