#include "log/Log.h"

#include "log/LogFacility.h"
#include "log/LogIDs.h"
#include "platform/Root.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace QelUtilVideo {

void log(LogLevel level, const std::string& message, std::source_location where) {
  try {
    Root::current().get<LogFacility>().write(level, message, where);
  } catch (...) {
    // No memory, not even to report it: the caller must not suffer from that.
  }
}

void fatal(const std::string& message, std::source_location where) {
  log(LogLevel::error, message, where);
  const auto here = std::source_location::current();
  std::fprintf(stderr, "Fatal error: %s: file %s, line %ju\n", message.c_str(), here.file_name(),
               static_cast<std::uintmax_t>(here.line()));
  std::abort();
}

std::int64_t nextLogID() { return Root::current().get<LogIDs>().next(); }

void setupLogger(std::optional<Logger> logger) {
  Root::current().get<LogFacility>().install(logger ? std::make_shared<const Logger>(std::move(*logger))
                                                    : nullptr);
}

}  // namespace QelUtilVideo
