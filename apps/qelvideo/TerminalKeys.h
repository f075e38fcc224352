#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "HostLoop.h"
#include "KeyDecoder.h"
#include "TerminalMode.h"

namespace qelvideo {

/// Keys from standard input: those pressed at a terminal, one by one and without being shown, or the
/// characters that come through a pipe or out of a file. What `TerminalMode` says of the terminal holds.
/// Nobody else may read standard input meanwhile. One at a time; main thread.
class TerminalKeys {
 public:
  using Handler = std::function<void(const std::string& key)>;

  /// While the loop runs, `pressed` is called with each key as `KeyDecoder` names it; it leaves this object
  /// alive.
  TerminalKeys(HostLoop& loop, Handler pressed);
  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;

  /// Nothing will come any more: the pipe was closed, the file read, the terminal hung up, or Ctrl-D pressed.
  [[nodiscard]] bool ended() const { return ended_; }

 private:
  void followTerminal();
  void read(short events);
  void handOut(std::string_view bytes);
  void awaitRest();
  void end();

  HostLoop& loop_;
  Handler pressed_;
  bool ended_ = false;
  KeyDecoder decoder_;
  std::optional<TerminalMode> mode_;
  std::shared_ptr<HostLoop::Watch> watch_;
  std::shared_ptr<int> waits_ = std::make_shared<int>(0);  ///< how often the rest of a key was awaited
};

}  // namespace qelvideo
