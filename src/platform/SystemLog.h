#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace QelUtilVideo {

/// The system log's kinds of record.
enum class os_log_type_t : std::uint8_t {
  OS_LOG_TYPE_DEFAULT = 0x00,
  OS_LOG_TYPE_INFO = 0x01,
  OS_LOG_TYPE_ERROR = 0x10,
};

/// The library's own subsystem; its parts are told apart by category.
inline constexpr const char* systemLogSubsystem = "io.github.qelutilvideo.QelUtilVideo";

/// One subsystem's and category's way into the system log. Any thread.
class OSLog {
 public:
  virtual ~OSLog() = default;
  /// Writes one record; never fails, never blocks.
  virtual void os_log(os_log_type_t type, const std::string& text) = 0;
};

/// Any thread.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  [[nodiscard]] virtual std::shared_ptr<OSLog> makeLog(std::string subsystem, std::string category) = 0;
};

}  // namespace QelUtilVideo
