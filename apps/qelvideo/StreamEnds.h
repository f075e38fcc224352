#pragma once

#include <memory>
#include <vector>

#include "HostLoop.h"

namespace qelvideo {

/// Notices, while the host loop runs, that nobody is at the other end any more: the pipe at standard input
/// was closed, the reader of standard output has left, or the terminal of one of them is gone. What comes
/// in through the pipe is dropped; a terminal is not read, and a file or /dev/null has no other end.
/// Main thread.
class StreamEnds {
 public:
  explicit StreamEnds(HostLoop& loop);
  StreamEnds(const StreamEnds&) = delete;
  StreamEnds& operator=(const StreamEnds&) = delete;

  [[nodiscard]] bool areGone() const { return gone_; }

 private:
  void dropInput();
  void end();

  bool gone_ = false;
  std::vector<std::shared_ptr<HostLoop::Watch>> watches_;
};

}  // namespace qelvideo
