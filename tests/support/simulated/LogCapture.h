#pragma once

#include "log/Log.h"
#include "platform/Synchronised.h"

#include <QelUtilVideo/Logger.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace QelUtilVideo {

/// Listens to the library's log lines for its life. Messages come without the prefix that sinks get;
/// the line with the revision is left out unless asked for.
class LogCapture {
 public:
  struct Line {
    LogLevel level;
    std::string message;
    std::string file;
    std::uint64_t line;
  };

  explicit LogCapture(bool withRevision = false) {
    const auto sink = [&](LogLevel level) {
      return [lines = lines_, level, withRevision](const std::string& text, const char* file,
                                                   std::uint64_t line) {
        constexpr std::string_view prefix = "[QelUtilVideo] ";
        const std::string message =
            text.starts_with(prefix) ? text.substr(prefix.size()) : "no prefix: " + text;
        if (!withRevision && message.starts_with("module revision ")) return;
        lines->with([&](auto& all) { all.push_back({level, message, file, line}); });
      };
    };
    setupLogger(Logger(sink(LogLevel::info), sink(LogLevel::warning), sink(LogLevel::error)));
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture() { setupLogger(std::nullopt); }

  [[nodiscard]] std::vector<Line> lines() const { return lines_->copy(); }
  /// Those of one level, or all.
  [[nodiscard]] std::vector<std::string> messages(std::optional<LogLevel> level = {}) const {
    std::vector<std::string> messages;
    for (const Line& line : lines()) {
      if (!level || line.level == *level) messages.push_back(line.message);
    }
    return messages;
  }
  /// Forgets the lines so far.
  void clear() {
    lines_->with([](auto& all) { all.clear(); });
  }

 private:
  using Lines = Synchronised<std::vector<Line>>;
  std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
};

}  // namespace QelUtilVideo
