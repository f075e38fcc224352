#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Cancellation.h"
#include "FileDescriptor.h"

namespace qelvideo {

/// Reads bytes from a file or a pipe. A read that waits ends by `Cancelled` once its cancellation is set.
class ByteInput {
 public:
  /// Opens a file; "-" is standard input. Throws `Failure`.
  [[nodiscard]] static ByteInput open(const std::string& path, std::shared_ptr<Cancellation> cancellation);
  /// `name` is what messages call it.
  ByteInput(FileDescriptor descriptor, std::string name, std::shared_ptr<Cancellation> cancellation);

  [[nodiscard]] const std::string& name() const { return name_; }
  /// Fills `bytes` as far as the input goes; fewer than asked for means that it ended.
  [[nodiscard]] std::size_t read(std::span<std::byte> bytes);

  struct Line {
    std::string text;         ///< without the line feed
    bool terminated = false;  ///< false: the input ended, or the limit was reached, before a line feed
  };
  /// The next line, at most `limit` bytes of it; absent at the end of the input.
  [[nodiscard]] std::optional<Line> readLine(std::size_t limit);

 private:
  [[nodiscard]] bool refill();

  FileDescriptor descriptor_;
  std::string name_;
  std::shared_ptr<Cancellation> cancellation_;
  std::vector<std::byte> buffer_;
  std::size_t position_ = 0;
  std::size_t filled_ = 0;
};

}  // namespace qelvideo
