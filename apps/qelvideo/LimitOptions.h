#pragma once

#include <cstdint>
#include <optional>

namespace CLI {
class App;
}

namespace qelvideo {

struct RecordingLimits;

/// Declares --frames and --seconds, of which a command line takes one at most.
void addLimitOptions(CLI::App& command, RecordingLimits& limits);
/// Declares --frames alone.
void addFramesOption(CLI::App& command, std::optional<std::uint64_t>& frames);

}  // namespace qelvideo
