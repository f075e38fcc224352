#include "ByteInput.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Failure.h"

namespace qelvideo {

ByteInput ByteInput::open(const std::string& path, std::shared_ptr<Cancellation> cancellation) {
  const bool standard = path == "-";
  std::string name = standard ? "standard input" : path;
  FileDescriptor descriptor(standard ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                     : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!descriptor) throw systemFailure("cannot open " + name, errno);
  return {std::move(descriptor), std::move(name), std::move(cancellation)};
}

ByteInput::ByteInput(FileDescriptor descriptor, std::string name, std::shared_ptr<Cancellation> cancellation)
    : descriptor_(std::move(descriptor)),
      name_(std::move(name)),
      cancellation_(std::move(cancellation)),
      buffer_(std::size_t{1} << 16) {}

std::size_t ByteInput::read(std::span<std::byte> bytes) {
  std::size_t done = 0;
  while (done < bytes.size() && (position_ < filled_ || refill())) {
    const std::size_t count = std::min(bytes.size() - done, filled_ - position_);
    std::memcpy(bytes.data() + done, buffer_.data() + position_, count);
    position_ += count;
    done += count;
  }
  return done;
}

std::optional<ByteInput::Line> ByteInput::readLine(std::size_t limit) {
  Line line;
  while (line.text.size() < limit && (position_ < filled_ || refill())) {
    const char character = std::to_integer<char>(buffer_[position_++]);
    if (character == '\n') {
      line.terminated = true;
      return line;
    }
    line.text += character;
  }
  if (line.text.empty()) return std::nullopt;
  return line;
}

bool ByteInput::refill() {
  for (;;) {
    if (!cancellation_->waitFor(descriptor_.get(), POLLIN)) throw Cancelled{};
    const ssize_t count = ::read(descriptor_.get(), buffer_.data(), buffer_.size());
    if (count >= 0) {
      position_ = 0;
      filled_ = static_cast<std::size_t>(count);
      return count > 0;
    }
    if (errno != EINTR && errno != EAGAIN) throw systemFailure("cannot read " + name_, errno);
  }
}

}  // namespace qelvideo
