#include "ByteOutput.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Failure.h"

namespace qelvideo {

namespace {

constexpr mode_t newFileMode = 0666;

}  // namespace

ByteOutput ByteOutput::open(const std::string& path, std::shared_ptr<Cancellation> cancellation) {
  if (path == "-") {
    FileDescriptor descriptor(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    if (!descriptor) throw systemFailure("cannot write to standard output", errno);
    return {std::move(descriptor), "standard output", std::move(cancellation)};
  }
  FileDescriptor descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, newFileMode));
  const bool created = static_cast<bool>(descriptor);
  if (!created && errno == EEXIST) descriptor = FileDescriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!descriptor) {
    const Failure failure = systemFailure("cannot write to " + path, errno);
    throw Failure(std::string(failure.what()) + "; name a file in a folder that you may write to");
  }
  ByteOutput output(std::move(descriptor), path, std::move(cancellation));
  output.created_ = created;
  return output;
}

ByteOutput::ByteOutput(FileDescriptor descriptor, std::string name,
                       std::shared_ptr<Cancellation> cancellation)
    : descriptor_(std::move(descriptor)), name_(std::move(name)), cancellation_(std::move(cancellation)) {
  struct stat status {};
  regular_ = ::fstat(descriptor_.get(), &status) == 0 && S_ISREG(status.st_mode);
  // Frames are large: fewer turns between the two ends of a pipe. Where it cannot grow, it stays.
  if (S_ISFIFO(status.st_mode)) ::fcntl(descriptor_.get(), F_SETPIPE_SZ, 1 << 20);
}

ByteOutput::~ByteOutput() {
  if (descriptor_ && created_ && written_ == 0) ::unlink(name_.c_str());
}

ByteOutput::Outcome ByteOutput::write(std::span<const std::byte> piece) {
  if (written_ == 0) begin();
  std::size_t done = 0;
  while (done < piece.size()) {
    // A pipe that polls writable takes this much without blocking, so a cancellation is never missed.
    const std::size_t most = regular_ ? piece.size() : PIPE_BUF;
    if (!regular_ && !cancellation_->waitFor(descriptor_.get(), POLLOUT)) return Outcome::cancelled;
    const ssize_t count =
        ::write(descriptor_.get(), piece.data() + done, std::min(most, piece.size() - done));
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno == EPIPE) {
      return Outcome::readerGone;
    } else if (errno != EINTR && errno != EAGAIN) {
      failAt(errno);
    }
  }
  written_ += piece.size();
  return Outcome::written;
}

void ByteOutput::close() {
  if (!descriptor_ || (created_ && written_ == 0)) return;
  if (::close(descriptor_.release()) != 0 && errno != EINTR) failAt(errno);
}

void ByteOutput::begin() {
  // Standard output may continue a file that the shell opened for appending.
  if (regular_ && name_ != "standard output" && ::ftruncate(descriptor_.get(), 0) != 0) failAt(errno);
}

void ByteOutput::failAt(int error) {
  if (descriptor_ && regular_ && name_ != "standard output") {
    // The outcome changes nothing about the failure that is reported.
    static_cast<void>(!::ftruncate(descriptor_.get(), static_cast<off_t>(written_)));
  }
  throw systemFailure("cannot write to " + name_ + " after " + std::to_string(written_) + " bytes", error);
}

}  // namespace qelvideo
