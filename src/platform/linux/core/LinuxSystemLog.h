#pragma once

#include "platform/SystemLog.h"

#include <memory>
#include <string>

namespace QelUtilVideo {

/// The journal where there is one, else the system logger, else nothing. A record is one datagram that
/// is never waited for: what the reader has no room for is lost.
class LinuxSystemLog final : public SystemLog {
 public:
  explicit LinuxSystemLog(std::string journalSocket = "/run/systemd/journal/socket",
                          std::string syslogSocket = "/dev/log");
  ~LinuxSystemLog() override;

  [[nodiscard]] std::shared_ptr<OSLog> makeLog(std::string subsystem, std::string category) override;

 private:
  class Sender;
  class Log;
  std::shared_ptr<Sender> sender_;
};

}  // namespace QelUtilVideo
