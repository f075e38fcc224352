#pragma once

#include <unistd.h>

#include <utility>

namespace QelUtilVideo {

/// A file descriptor that is closed with its owner. Wrap a descriptor on the line that obtains it.
class UniqueFD {
 public:
  UniqueFD() = default;
  /// Takes over `fd`; a negative one stands for none.
  explicit UniqueFD(int fd) : fd_(fd) {}
  UniqueFD(UniqueFD&& other) noexcept : fd_(other.release()) {}
  UniqueFD& operator=(UniqueFD&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFD(const UniqueFD&) = delete;
  UniqueFD& operator=(const UniqueFD&) = delete;
  ~UniqueFD() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
  /// Gives the descriptor up without closing it.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

}  // namespace QelUtilVideo
