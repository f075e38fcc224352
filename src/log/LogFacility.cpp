#include "log/LogFacility.h"

#include "platform/CallSafely.h"
#include "platform/SystemLog.h"

#include <QelKit/QelAppLog.h>
#include <QelKit/QelManager.h>
#include <QelUtilVideo/Version.h>

#include <utility>

namespace QelUtilVideo {
namespace {

constexpr os_log_type_t systemLogType(LogLevel level) {
  switch (level) {
    case LogLevel::error:
      return os_log_type_t::OS_LOG_TYPE_ERROR;
    case LogLevel::warning:
      return os_log_type_t::OS_LOG_TYPE_DEFAULT;
    case LogLevel::info:
      break;
  }
  return os_log_type_t::OS_LOG_TYPE_INFO;
}

const Logger::Sink& sinkFor(const Logger& logger, LogLevel level) {
  switch (level) {
    case LogLevel::error:
      return logger.logError;
    case LogLevel::warning:
      return logger.logWarning;
    case LogLevel::info:
      break;
  }
  return logger.logInfo;
}

std::shared_ptr<const Logger> makeDefaultLogger() {
  if (!QelKit::QelManager::isLoggingEnabled()) return nullptr;
  const auto sink = [](LogLevel level) {
    return [level](const std::string& message, const char*, std::uint64_t line) {
      QelKit::QelAppLog(static_cast<std::int64_t>(level), line, message);
    };
  };
  return std::make_shared<const Logger>(sink(LogLevel::info), sink(LogLevel::warning), sink(LogLevel::error));
}

}  // namespace

LogFacility::LogFacility(Root& root) : platform_(root.platform()) {}
LogFacility::~LogFacility() = default;

void LogFacility::write(LogLevel level, const std::string& message, const std::source_location& where) {
  writeRevisionFirst();
  attempt("The system log", [&] { writeToSystemLog(level, message, where.line()); });
  attempt("A log sink", [&] { writeToSink(level, message, where); });
}

void LogFacility::install(std::shared_ptr<const Logger> logger) {
  // The previous logger goes with the parameter, after the lock.
  const MutexLock lock(mutex_);
  installDefaultOnce();
  std::swap(logger_, logger);
}

void LogFacility::writeRevisionFirst() {
  if (revision_.load(std::memory_order_acquire) == Revision::written) return;
  Revision found = Revision::unwritten;
  if (!revision_.compare_exchange_strong(found, Revision::beingWritten)) {
    if (revisionWriter_ != std::this_thread::get_id()) revision_.wait(Revision::beingWritten);
    return;
  }
  revisionWriter_ = std::this_thread::get_id();
  attempt("The line with the revision",
          [this] { write(LogLevel::info, "module revision " + version(), std::source_location::current()); });
  revision_.store(Revision::written, std::memory_order_release);
  revision_.notify_all();
}

void LogFacility::writeToSystemLog(LogLevel level, const std::string& message, std::uint64_t line) {
  std::call_once(systemLogOnce_,
                 [this] { systemLog_ = platform_.systemLog().makeLog(systemLogSubsystem, "video"); });
  systemLog_->os_log(systemLogType(level), "[:" + std::to_string(line) + "] " + message);
}

void LogFacility::writeToSink(LogLevel level, const std::string& message, const std::source_location& where) {
  const std::shared_ptr<const Logger> logger = installedLogger();
  if (!logger) return;
  const Logger::Sink& sink = sinkFor(*logger, level);
  if (sink) sink("[QelUtilVideo] " + message, where.file_name(), where.line());
}

void LogFacility::attempt(const char* what, const std::function<void()>& step) {
  callSafely([this](const std::string& text) { platformTrouble(platform_, text); }, what, step);
}

std::shared_ptr<const Logger> LogFacility::installedLogger() {
  const MutexLock lock(mutex_);
  installDefaultOnce();
  return logger_;
}

void LogFacility::installDefaultOnce() {
  if (std::exchange(defaultInstalled_, true)) return;
  logger_ = makeDefaultLogger();
}

}  // namespace QelUtilVideo
