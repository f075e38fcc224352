#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace qelvideo {

/// A window that belongs into the pictures of the windows behind it, whoever's they are.
struct Overlay {
  std::int32_t processIdentifier = 0;
  std::int64_t windowLevel = 0;
};

/// Reads PID:LEVEL. Throws `UsageFailure` for anything else.
[[nodiscard]] Overlay parseOverlay(const std::string& text);

/// Declares --overlay.
void addOverlayOption(CLI::App& command, std::string& overlay);
/// Registers the overlay that the option names; an empty text is none.
void registerOverlay(const std::string& overlay);

}  // namespace qelvideo
