#include "platform/linux/core/LinuxSystemLog.h"

#include "platform/linux/core/UniqueFD.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace QelUtilVideo {
namespace {

constexpr const char* identifier = "QelUtilVideo";
constexpr std::size_t longestText = 48 * 1024;  ///< bytes; well below what a datagram can carry

/// The priorities of the system logger.
constexpr int priority(os_log_type_t type) {
  switch (type) {
    case os_log_type_t::OS_LOG_TYPE_ERROR:
      return 3;
    case os_log_type_t::OS_LOG_TYPE_DEFAULT:
      return 5;
    case os_log_type_t::OS_LOG_TYPE_INFO:
      break;
  }
  return 6;
}

std::string_view shortened(std::string_view text) {
  if (text.size() <= longestText) return text;
  // Not in the middle of a UTF-8 character; what is none after three bytes is not UTF-8.
  for (std::size_t length = longestText; length >= longestText - 3; --length) {
    if ((static_cast<unsigned char>(text[length]) & 0xC0) != 0x80) return text.substr(0, length);
  }
  return text.substr(0, longestText);
}

/// A field of a journal record; values with line feeds carry their length in 64 bits, lowest byte first.
void appendField(std::string& record, std::string_view name, std::string_view value) {
  record += name;
  if (value.find('\n') == std::string_view::npos) {
    record += '=';
  } else {
    record += '\n';
    for (std::uint64_t rest = value.size(), byte = 0; byte < 8; ++byte, rest >>= 8) {
      record += static_cast<char>(rest & 0xFF);
    }
  }
  record += value;
  record += '\n';
}

std::string timeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  ::localtime_r(&now, &local);
  // In English whatever the locale: readers parse it.
  static constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::array<char, 32> rest{};
  std::strftime(rest.data(), rest.size(), " %e %H:%M:%S", &local);
  return months[static_cast<std::size_t>(local.tm_mon)] + std::string(rest.data());
}

}  // namespace

/// The one socket of the process. Records carry their address, so a reader that is restarted is found.
class LinuxSystemLog::Sender {
 public:
  Sender(std::string journal, std::string syslog)
      : journalSocket_(std::move(journal)),
        syslogSocket_(std::move(syslog)),
        socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}

  void send(const std::string& subsystem, const std::string& category, os_log_type_t type,
            std::string_view text) const {
    std::string record;
    appendField(record, "PRIORITY", std::to_string(priority(type)));
    appendField(record, "SYSLOG_IDENTIFIER", identifier);
    appendField(record, "SUBSYSTEM", subsystem);
    appendField(record, "CATEGORY", category);
    appendField(record, "MESSAGE", text);
    if (sendTo(journalSocket_, record) == Sent::noReader) {
      constexpr int userFacility = 1 << 3;
      sendTo(syslogSocket_, "<" + std::to_string(userFacility | priority(type)) + ">" + timeOfDay() + " " +
                                identifier + "/" + category + "[" + std::to_string(::getpid()) +
                                "]: " + std::string(text));
    }
  }

  Reader reader() const {
    const auto answers = [](const std::string& path) {
      const UniqueFD probe(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      const std::optional<sockaddr_un> address = addressOf(path);
      return address &&
             ::connect(probe.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
    };
    if (answers(journalSocket_)) return Reader::journal;
    return answers(syslogSocket_) ? Reader::syslog : Reader::none;
  }

 private:
  enum class Sent : std::uint8_t { yes, lost, noReader };

  static std::optional<sockaddr_un> addressOf(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof address.sun_path) return std::nullopt;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
  }

  Sent sendTo(const std::string& path, const std::string& record) const {
    const std::optional<sockaddr_un> address = addressOf(path);
    if (!address) return Sent::noReader;
    const ssize_t sent = ::sendto(socket_.get(), record.data(), record.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                  reinterpret_cast<const sockaddr*>(&*address), sizeof *address);
    if (sent >= 0) return Sent::yes;
    const bool full = errno == EAGAIN || errno == ENOBUFS || errno == EMSGSIZE;
    return full ? Sent::lost : Sent::noReader;
  }

  const std::string journalSocket_;
  const std::string syslogSocket_;
  const UniqueFD socket_;
};

class LinuxSystemLog::Log final : public OSLog {
 public:
  Log(std::shared_ptr<const Sender> sender, std::string subsystem, std::string category)
      : sender_(std::move(sender)), subsystem_(std::move(subsystem)), category_(std::move(category)) {}

  void os_log(os_log_type_t type, const std::string& text) override {
    const int callersError = errno;
    sender_->send(subsystem_, category_, type, shortened(text));
    errno = callersError;
  }

 private:
  const std::shared_ptr<const Sender> sender_;
  const std::string subsystem_;
  const std::string category_;
};

LinuxSystemLog::LinuxSystemLog(std::string journal, std::string syslog)
    : sender_(std::make_shared<Sender>(std::move(journal), std::move(syslog))) {}
LinuxSystemLog::~LinuxSystemLog() = default;

LinuxSystemLog::Reader LinuxSystemLog::reader() const { return sender_->reader(); }

std::shared_ptr<OSLog> LinuxSystemLog::makeLog(std::string subsystem, std::string category) {
  return std::make_shared<Log>(sender_, std::move(subsystem), std::move(category));
}

}  // namespace QelUtilVideo
