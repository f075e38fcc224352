#include <QelKit/QelAppLog.h>

#include <cstdio>

namespace QelKit {
namespace {

std::string levelName(std::int64_t level) {
  switch (level) {
    case 0:
      return "error";
    case 1:
      return "warning";
    case 2:
      return "info";
    default:
      return std::to_string(level);
  }
}

}  // namespace

void QelAppLog(std::int64_t level, std::uint64_t line, const std::string& message) {
  const std::string text = levelName(level) + " [" + std::to_string(line) + "] " + message + "\n";
  std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace QelKit
