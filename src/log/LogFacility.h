#pragma once

#include "log/Log.h"
#include "platform/Root.h"
#include "platform/ThreadSafety.h"

#include <QelUtilVideo/Logger.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <source_location>
#include <string>
#include <thread>

namespace QelUtilVideo {

class OSLog;

/// The process's way to the system log and to the installed sinks. Any thread; no lock is held while a
/// sink runs.
class LogFacility {
 public:
  explicit LogFacility(Root& root);
  ~LogFacility();

  void write(LogLevel level, const std::string& message, const std::source_location& where);
  /// Null removes the sinks.
  void install(std::shared_ptr<const Logger> logger);

 private:
  /// How far the line with the library's revision has come.
  enum class Revision : std::uint8_t { unwritten, beingWritten, written };

  /// Writes the revision line when nobody has, and otherwise waits until it is out, so that it precedes
  /// every other line at every destination. The thread that writes it does not wait: a sink may log.
  void writeRevisionFirst();
  void writeToSystemLog(LogLevel level, const std::string& message, std::uint64_t line);
  void writeToSink(LogLevel level, const std::string& message, const std::source_location& where);
  /// Runs one step of a line; what it throws is reported and does not keep the other steps from running.
  void attempt(const char* what, const std::function<void()>& step);

  [[nodiscard]] std::shared_ptr<const Logger> installedLogger();
  void installDefaultOnce() REQUIRES(mutex_);

  Platform& platform_;

  std::atomic<Revision> revision_{Revision::unwritten};
  std::atomic<std::thread::id> revisionWriter_{};

  std::once_flag systemLogOnce_;
  std::shared_ptr<OSLog> systemLog_;

  Mutex mutex_;
  bool defaultInstalled_ GUARDED_BY(mutex_) = false;
  std::shared_ptr<const Logger> logger_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
