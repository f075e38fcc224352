#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "HostLoop.h"
#include "KeyDecoder.h"
#include "TerminalMode.h"

namespace qelvideo {

/// Standard input as a source of keys: of a terminal, each key as it is pressed, and of a pipe, each
/// character. A file or /dev/null gives nothing. Nobody else may read standard input meanwhile. Main
/// thread; the functions are called in the host loop and leave this object alive.
class TerminalKeys {
 public:
  /// `key` is told keys as `KeyDecoder` names them; `ended` is told once when the pipe's other end or the
  /// terminal is gone, and at Ctrl-D.
  TerminalKeys(HostLoop& loop, std::function<void(const std::string& key)> key, std::function<void()> ended);
  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;

 private:
  void followTerminal();
  void read(short events);
  void handOut(std::string_view bytes);
  void awaitRest();
  void end();

  HostLoop& loop_;
  std::function<void(const std::string&)> key_;
  std::function<void()> ended_;
  KeyDecoder decoder_;
  std::optional<TerminalMode> mode_;
  std::shared_ptr<HostLoop::Watch> watch_;
  std::shared_ptr<int> waits_ = std::make_shared<int>(0);  ///< how often the rest of a key was awaited
};

}  // namespace qelvideo
