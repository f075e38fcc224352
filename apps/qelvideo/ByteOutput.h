#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "Cancellation.h"
#include "FileDescriptor.h"

namespace qelvideo {

/// Writes to a file or a pipe, each piece whole or, in a file, not at all. An existing file keeps its
/// contents until the first piece comes; a new one that never got a piece is removed again.
class ByteOutput {
 public:
  enum class Outcome { written, readerGone, cancelled };

  /// Opens a file; "-" is standard output. Throws `Failure`.
  [[nodiscard]] static ByteOutput open(const std::string& path, std::shared_ptr<Cancellation> cancellation);
  ByteOutput(ByteOutput&&) = default;
  ByteOutput& operator=(ByteOutput&&) = delete;
  ~ByteOutput();

  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] std::uint64_t bytesWritten() const { return written_; }
  /// Throws `Failure`, with what was written before still there.
  [[nodiscard]] Outcome write(std::span<const std::byte> piece);
  /// Throws `Failure` when the system could not keep what it was given.
  void close();

 private:
  ByteOutput(FileDescriptor descriptor, std::string name, std::shared_ptr<Cancellation> cancellation);
  void begin();
  [[noreturn]] void failAt(int error);

  FileDescriptor descriptor_;
  std::string name_;
  std::shared_ptr<Cancellation> cancellation_;
  std::uint64_t written_ = 0;
  bool regular_ = false;
  bool created_ = false;
};

}  // namespace qelvideo
