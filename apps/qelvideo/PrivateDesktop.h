#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "VirtualServer.h"

namespace qelvideo {

class Terminal;

/// An X server without a screen, with a coloured background and a few programs on it. While it lives,
/// DISPLAY names it; make it before the library asks for displays.
class PrivateDesktop {
 public:
  /// Throws `Failure` when there is no such server on the machine. Programs that are missing are left
  /// out with a note.
  explicit PrivateDesktop(Terminal& terminal);

  /// As in ":1".
  [[nodiscard]] const std::string& display() const { return server_->display(); }

 private:
  std::optional<VirtualServer> server_;
  std::vector<ChildProcess> programs_;
};

}  // namespace qelvideo
