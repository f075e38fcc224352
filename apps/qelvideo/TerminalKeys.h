#pragma once

#include <functional>
#include <memory>
#include <string>

#include "HostLoop.h"

namespace qelvideo {

/// Keys from standard input: those pressed at a terminal, one by one and without being shown, or the bytes
/// that come through a pipe or out of a file. The terminal is as it was before once the object is gone, and
/// while the program is stopped by Ctrl-Z. A program in the background leaves its terminal alone. One at a
/// time; main thread.
class TerminalKeys {
 public:
  using Handler = std::function<void(const std::string& characters)>;

  /// While the loop runs, `pressed` is called with each key's text, one byte of what comes.
  TerminalKeys(HostLoop& loop, Handler pressed);
  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;
  ~TerminalKeys();

  /// Nothing will come any more: the pipe was closed, the file read, the terminal hung up.
  [[nodiscard]] bool ended() const { return ended_; }

 private:
  void read();

  Handler pressed_;
  bool ended_ = false;
  std::shared_ptr<HostLoop::Watch> watch_;
};

}  // namespace qelvideo
