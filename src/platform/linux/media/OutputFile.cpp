#include "platform/linux/media/OutputFile.h"

#include "platform/linux/core/NoPipeSignal.h"
#include "platform/linux/core/UniqueFD.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <utility>

namespace QelUtilVideo {

namespace {

namespace fs = std::filesystem;

std::error_code lastError() { return {errno, std::generic_category()}; }

std::error_code writeAll(int fd, std::span<const std::byte> contents) {
  while (!contents.empty()) {
    const ssize_t written = ::write(fd, contents.data(), contents.size());
    if (written >= 0) {
      contents = contents.subspan(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return lastError();
    }
  }
  return {};
}

/// Some file systems tell only here that there was no room.
std::error_code close(UniqueFD fd) {
  if (::close(fd.release()) != 0 && errno != EINTR) return lastError();
  return {};
}

std::error_code writeInto(UniqueFD fd, std::span<const std::byte> contents) {
  if (const std::error_code error = writeAll(fd.get(), contents)) return error;
  return close(std::move(fd));
}

/// A name in the same folder that nobody else uses.
fs::path temporaryBeside(const fs::path& path) {
  static std::atomic<unsigned> counter{0};
  const std::string unique = std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1));
  return path.parent_path() / ("." + path.filename().string() + "." + unique);
}

std::error_code writeBesideAndRename(const fs::path& path, std::span<const std::byte> contents) {
  const fs::path temporary = temporaryBeside(path);
  UniqueFD fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!fd) return lastError();
  std::error_code error = writeInto(std::move(fd), contents);
  if (!error && ::rename(temporary.c_str(), path.c_str()) != 0) error = lastError();
  if (error) ::unlink(temporary.c_str());
  return error;
}

}  // namespace

std::error_code replaceFile(const std::string& path, std::span<const std::byte> contents) {
  // Asked of the name as given: a link to a pipe in /proc leads to a name that does not exist.
  struct stat existing {};
  if (::stat(path.c_str(), &existing) == 0 && !S_ISREG(existing.st_mode)) {
    const NoPipeSignal noSignal;
    UniqueFD fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return fd ? writeInto(std::move(fd), contents) : lastError();
  }
  std::error_code error;
  const fs::path target = fs::weakly_canonical(path, error);
  return error ? error : writeBesideAndRename(target, contents);
}

}  // namespace QelUtilVideo
