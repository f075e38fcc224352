#include "platform/linux/v4l2/CameraErrors.h"

#include "platform/linux/core/CaptureStream.h"
#include "platform/linux/v4l2/CameraFormats.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <system_error>

namespace QelUtilVideo {

namespace {

namespace fs = std::filesystem;

NSError captureError(int code, std::string text) { return {kCaptureErrorDomain, code, std::move(text)}; }

std::optional<struct stat> statusOf(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status;
}

/// Whether both are the same device, or the same file.
bool areSame(const struct stat& a, const struct stat& b) {
  if (S_ISCHR(a.st_mode) && S_ISCHR(b.st_mode)) return a.st_rdev == b.st_rdev;
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool holds(const fs::path& process, const struct stat& node, const fs::path& path) {
  std::error_code error;
  fs::directory_iterator descriptors(process / "fd", error);
  for (; !error && descriptors != fs::directory_iterator(); descriptors.increment(error)) {
    // Not every file answers: some lie on servers that are gone.
    const fs::path target = fs::read_symlink(descriptors->path(), error);
    if (std::exchange(error, {}) || (target != path && !target.string().starts_with("/dev/"))) continue;
    const auto open = statusOf(descriptors->path().string());
    if (open && areSame(*open, node)) return true;
  }
  return false;
}

std::optional<pid_t> processNumber(const fs::path& entry) {
  const std::string name = entry.filename().string();
  pid_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  if (error != std::errc() || end != name.data() + name.size()) return std::nullopt;
  return number;
}

std::string groupName(gid_t group) {
  std::array<char, 4096> buffer{};
  struct group entry {};
  struct group* found = nullptr;
  if (::getgrgid_r(group, &entry, buffer.data(), buffer.size(), &found) == 0 && found) return found->gr_name;
  return std::to_string(group);
}

std::string systemText(int error) { return std::generic_category().message(error); }

}  // namespace

std::string whoHolds(const std::string& path) {
  const auto node = statusOf(path);
  if (!node) return {};
  std::error_code error;
  const fs::path place = fs::canonical(path, error);
  constexpr std::size_t mostNames = 3;
  std::vector<std::string> names;
  fs::directory_iterator processes("/proc", error);
  for (; !error && processes != fs::directory_iterator(); processes.increment(error)) {
    const auto number = processNumber(processes->path());
    if (!number || *number == ::getpid() || !holds(processes->path(), *node, place)) continue;
    std::string name;
    std::getline(std::ifstream(processes->path() / "comm"), name);
    names.push_back((name.empty() ? "a program" : name) + " (process " + std::to_string(*number) + ")");
  }
  std::string text;
  for (std::size_t i = 0; i < names.size() && i < mostNames; ++i) {
    text += (i == 0 ? "" : i + 1 == names.size() ? " and " : ", ") + names[i];
  }
  return text + (names.size() > mostNames ? " and others" : "");
}

std::string whyForbidden(const std::string& path) {
  const auto node = statusOf(path);
  const std::string forbidden = "No permission for " + path;
  if (!node) return forbidden;
  if ((node->st_mode & S_IRGRP) && (node->st_mode & S_IWGRP)) {
    const std::string group = groupName(node->st_gid);
    return forbidden + ": make the user a member of the group " + group + ", as with `usermod -aG " + group +
           " USER`, and log in again";
  }
  return forbidden + ": its owner alone may use it; let its group read and write, as with `chmod g+rw " +
         path + "`";
}

NSError cameraError(const std::string& path, int error) {
  switch (error) {
    case EBUSY: {
      const std::string holder = whoHolds(path);
      if (holder.empty()) {
        return captureError(error, "The camera is in use by another program: end that one's capture first");
      }
      return captureError(error, "The camera is in use by " + holder + ": end that capture first");
    }
    case EACCES:
    case EPERM:
      return captureError(error, whyForbidden(path));
    case ENOENT:
    case ENODEV:
    case ENXIO:
    case ENOTCONN:
      return captureError(ENODEV, "The camera is not connected: plug it in");
    case ENOSPC:
      return captureError(
          error,
          "The camera's USB bus has no bandwidth left: plug it into another port, or end another capture");
    case EMFILE:
    case ENFILE:
      return captureError(
          error, "There are no file descriptors left: close files, or raise the limit (`ulimit -n`)");
    default:
      return captureError(
          error, "The camera does not work (" + systemText(error) + "): unplug it, and plug it in again");
  }
}

NSError noCameraFormat(const std::vector<std::uint32_t>& formats) {
  if (formats.empty()) return captureError(EINVAL, "The camera offers no picture format: use another one");
  std::string names;
  for (const std::uint32_t format : formats) {
    const std::string name = cameraFormatName(format);
    if ((", " + names + ",").find(", " + name + ",") != std::string::npos) continue;
    names += (names.empty() ? "" : ", ") + name;
  }
  return captureError(EINVAL, "The camera offers none of the picture formats that can be used here, only " +
                                  names + ": use another one");
}

NSError cameraTaken() {
  return captureError(EBUSY, "The camera is in use by another capture of this program: end that one first");
}

NSError cameraUnplugged() { return captureError(ENODEV, "The camera was unplugged"); }

}  // namespace QelUtilVideo
