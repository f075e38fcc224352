#pragma once

#include <optional>
#include <string>

#include "ChildProcess.h"

namespace qelvideo {

/// An X server without a screen (Xvfb) on a display number that was free; it ends with this object.
class VirtualServer {
 public:
  /// `screen`: width, height and depth, as in "1280x720x24". Returns once clients can connect; throws
  /// `Failure` when there is no such server on the machine.
  explicit VirtualServer(const std::string& screen);

  /// As in ":1".
  [[nodiscard]] const std::string& display() const { return display_; }

 private:
  std::optional<ChildProcess> process_;
  std::string display_;
};

}  // namespace qelvideo
