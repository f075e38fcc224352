#include "support/VncOutputs.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace qeltest {
namespace {

/// Big-endian bytes of a message of the RFB protocol.
class Message {
 public:
  Message& u8(unsigned value) {
    bytes_.push_back(static_cast<char>(value));
    return *this;
  }
  Message& u16(unsigned value) { return u8(value >> 8 & 255).u8(value & 255); }
  Message& u32(unsigned value) { return u16(value >> 16).u16(value & 65535); }
  [[nodiscard]] const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

constexpr unsigned extendedDesktopSize = static_cast<unsigned>(-308);

}  // namespace

std::unique_ptr<VncOutputs> VncOutputs::open(const std::string& path) {
  std::unique_ptr<VncOutputs> outputs(new VncOutputs(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  const timeval patience{5, 0};
  ::setsockopt(outputs->socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (::connect(outputs->socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return nullptr;
  }
  return outputs->greet() ? std::move(outputs) : nullptr;
}

VncOutputs::~VncOutputs() { ::close(socket_); }

bool VncOutputs::greet() {
  if (receive(12).empty() || !send("RFB 003.008\n")) return false;
  const std::string count = receive(1);
  if (count.empty() || receive(static_cast<unsigned char>(count[0])).empty()) return false;
  constexpr unsigned noSecurity = 1, sharing = 1;
  if (!send(Message().u8(noSecurity).bytes()) || receive(4) != std::string(4, '\0')) return false;
  if (!send(Message().u8(sharing).bytes()) || receive(4 + 16).empty()) return false;
  const std::string length = receive(4);
  if (length.empty() || receive(static_cast<unsigned char>(length[3])).empty()) return false;
  constexpr unsigned setEncodings = 2;
  return send(Message().u8(setEncodings).u8(0).u16(1).u32(extendedDesktopSize).bytes());
}

bool VncOutputs::arrange(const std::vector<Output>& outputs) {
  // The server takes an arrangement only from those that have asked for one.
  constexpr unsigned requestUpdate = 3, setDesktopSize = 251;
  if (!send(Message().u8(requestUpdate).u8(0).u16(0).u16(0).u16(1).u16(1).bytes())) return false;
  if (receive(4).empty()) return false;
  int width = 0, height = 0;
  for (const Output& output : outputs) {
    width = std::max(width, output.x + output.width);
    height = std::max(height, output.y + output.height);
  }
  Message message;
  message.u8(setDesktopSize).u8(0).u16(static_cast<unsigned>(width)).u16(static_cast<unsigned>(height));
  message.u8(static_cast<unsigned>(outputs.size())).u8(0);
  unsigned number = 0;
  for (const auto& [x, y, w, h] : outputs) {
    message.u32(number++).u16(static_cast<unsigned>(x)).u16(static_cast<unsigned>(y));
    message.u16(static_cast<unsigned>(w)).u16(static_cast<unsigned>(h)).u32(0);
  }
  return send(message.bytes());
}

bool VncOutputs::send(const std::string& bytes) const {
  return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string VncOutputs::receive(std::size_t count) const {
  std::string bytes(count, '\0');
  return ::recv(socket_, bytes.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count) ? bytes : "";
}

}  // namespace qeltest
