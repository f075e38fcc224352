#include "LogLines.h"

#include <QelUtilVideo/Logger.h>

#include "Terminal.h"

namespace qelvideo {

void showLogLines(Terminal& terminal) {
  const auto sink = [&terminal](const char* level) {
    return [&terminal, level](const std::string& message, const char*, std::uint64_t) {
      terminal.note(std::string(level) + message);
    };
  };
  QelUtilVideo::setupLogger(QelUtilVideo::Logger(sink("info: "), sink("warning: "), sink("error: ")));
}

}  // namespace qelvideo
