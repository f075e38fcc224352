#pragma once

#include <functional>
#include <memory>

#include "FileDescriptor.h"
#include "HostLoop.h"

namespace qelvideo {

/// While it lives, and while this process is in the foreground, the terminal at standard input hands over
/// each key at once and shows none. It is put back with this object, before the process is stopped (Ctrl-Z)
/// and whatever signal or exit ends the process; it is taken again when the process is continued in the
/// foreground. Nobody tells a process that was running in the background that it is in the foreground now:
/// it takes the terminal after the next Ctrl-Z. One at a time; main thread.
class TerminalMode {
 public:
  /// Standard input is a terminal. `changed` is called in the loop when `isTaken` may have changed.
  TerminalMode(HostLoop& loop, std::function<void()> changed);
  TerminalMode(const TerminalMode&) = delete;
  TerminalMode& operator=(const TerminalMode&) = delete;
  ~TerminalMode();

  /// Whether the terminal's keys are this process's now. Otherwise it must not read from it.
  [[nodiscard]] bool isTaken() const;

  /// Puts the terminal back as it was, if it is taken. For signal handlers, on any thread.
  static void putBack() noexcept;

 private:
  void take();

  std::function<void()> changed_;
  FileDescriptor continued_;
  std::shared_ptr<HostLoop::Watch> watch_;
};

}  // namespace qelvideo
