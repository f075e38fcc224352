#pragma once

#include <cstdint>
#include <source_location>
#include <string>

namespace QelUtilVideo {

enum class LogLevel : std::uint8_t { error = 0, warning = 1, info = 2 };

/// Writes one line to the system log as "[:LINE] MESSAGE" and, when a logger is installed, to its sink
/// for the level as "[QelUtilVideo] MESSAGE". The first call of the process writes the line with the
/// library's revision before its own. Never fails. Any thread; sinks run on the calling thread, so the
/// caller holds no lock.
void log(LogLevel level, const std::string& message,
         std::source_location where = std::source_location::current());

/// Logs at error level and ends the process. For programming errors and for the set-up failures that
/// say so, nothing else.
[[noreturn]] void fatal(const std::string& message,
                        std::source_location where = std::source_location::current());

/// The next log ID: 1, 2, 3 …, never twice the same in a process. Any thread.
[[nodiscard]] std::int64_t nextLogID();

}  // namespace QelUtilVideo
