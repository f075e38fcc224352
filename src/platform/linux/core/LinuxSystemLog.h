#pragma once

#include "platform/SystemLog.h"

#include <cstdint>
#include <memory>
#include <string>

namespace QelUtilVideo {

/// The journal where there is one, else the system logger, else nothing. A record is one datagram that
/// is never waited for: what the reader has no room for is lost.
class LinuxSystemLog final : public SystemLog {
 public:
  static constexpr const char* journalSocket = "/run/systemd/journal/socket";
  static constexpr const char* syslogSocket = "/dev/log";
  enum class Reader : std::uint8_t { journal, syslog, none };

  explicit LinuxSystemLog(std::string journal = journalSocket, std::string syslog = syslogSocket);
  ~LinuxSystemLog() override;

  /// Who would take a record now. Any thread.
  [[nodiscard]] Reader reader() const;

  [[nodiscard]] std::shared_ptr<OSLog> makeLog(std::string subsystem, std::string category) override;

 private:
  class Sender;
  class Log;
  std::shared_ptr<Sender> sender_;
};

}  // namespace QelUtilVideo
