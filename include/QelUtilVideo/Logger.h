#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace QelUtilVideo {

/// Where a host receives the library's log lines, one sink per level. Copies share the callables.
///
/// A sink is called synchronously on whatever thread logged, possibly on several at once, and possibly
/// while the library runs a block on one of its serial queues: it must not wait for another thread that
/// logs, and it must not ask a manager for its lists.
/// Lines about a view's pictures come while its context is locked: there it must not wait for the main thread
/// either. A sink that throws is ignored for that line.
struct Logger {
  /// `message` begins with "[QelUtilVideo] "; `file` names the library's source file and lives for ever;
  /// `line` is the line in it. An empty callable swallows its level.
  using Sink = std::function<void(const std::string& message, const char* file, std::uint64_t line)>;

  Logger(Sink info, Sink warning, Sink error)
      : logInfo(shareable(std::move(info))),
        logWarning(shareable(std::move(warning))),
        logError(shareable(std::move(error))) {}

  Sink logInfo;
  Sink logWarning;
  Sink logError;

 private:
  /// A sink whose copies all call the one given; an empty one stays empty.
  static Sink shareable(Sink sink) {
    if (!sink) return sink;
    return [shared = std::make_shared<const Sink>(std::move(sink))](const std::string& message,
                                                                    const char* file, std::uint64_t line) {
      (*shared)(message, file, line);
    };
  }
};

/// Installs the sinks, replacing the ones before (the default ones included); absent removes them.
/// The system log is written in any case. Any thread; a line being logged meanwhile goes to the old
/// sinks or to the new ones, never to a mixture.
QEL_EXPORT void setupLogger(std::optional<Logger> logger);

}  // namespace QelUtilVideo
