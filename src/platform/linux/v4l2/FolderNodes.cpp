#include "platform/linux/v4l2/FolderNodes.h"

#include "platform/linux/core/UniqueFD.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace QelUtilVideo {

namespace {

bool isNodeName(std::string_view name) {
  constexpr std::string_view start = "video";
  if (!name.starts_with(start) || name.size() == start.size()) return false;
  name.remove_prefix(start.size());
  return std::ranges::all_of(name, [](char digit) { return digit >= '0' && digit <= '9'; });
}

CameraNode nodeAt(const std::string& folder, std::string_view name) {
  CameraNode node;
  node.path = folder + "/" + std::string(name);
  return node;
}

class FolderWatch final : public NodeSource {
 public:
  FolderWatch(EventLoop& loop, std::string folder, NodeEvents events)
      : loop_(loop),
        folder_(std::move(folder)),
        events_(std::move(events)),
        notices_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    // Permissions are often set after the node was made.
    constexpr std::uint32_t kinds = IN_CREATE | IN_ATTRIB | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM;
    const bool isWatching = notices_ && ::inotify_add_watch(notices_.get(), folder_.c_str(), kinds) >= 0;
    tellAll();
    if (isWatching) loop_.watch(notices_.get(), [this] { take(); });
  }
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;
  ~FolderWatch() override {
    if (notices_) loop_.unwatch(notices_.get());
  }

 private:
  void tellAll() const {
    for (const CameraNode& node : listFolderNodes(folder_)) events_.added(node);
  }

  void take() {
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (;;) {
      const ssize_t size = ::read(notices_.get(), buffer.data(), buffer.size());
      if (size <= 0) return;
      for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
        inotify_event event{};
        std::memcpy(&event, buffer.data() + at, sizeof event);
        tell(event.mask, event.len > 0 ? buffer.data() + at + sizeof event : "");
        at += sizeof event + event.len;
      }
    }
  }

  void tell(std::uint32_t kind, std::string_view name) const {
    if (kind & IN_Q_OVERFLOW) return tellAll();
    if (!isNodeName(name)) return;
    const CameraNode node = nodeAt(folder_, name);
    if (kind & (IN_DELETE | IN_MOVED_FROM)) {
      events_.removed(node.path);
    } else {
      events_.added(node);
    }
  }

  EventLoop& loop_;
  const std::string folder_;
  const NodeEvents events_;
  const UniqueFD notices_;
};

}  // namespace

std::vector<CameraNode> listFolderNodes(const std::string& folder) {
  std::vector<CameraNode> nodes;
  std::error_code error;
  std::filesystem::directory_iterator entries(folder, error);
  for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
    const std::string name = entries->path().filename().string();
    if (isNodeName(name)) nodes.push_back(nodeAt(folder, name));
  }
  sortByNumber(nodes);
  return nodes;
}

std::unique_ptr<NodeSource> watchFolderNodes(EventLoop& loop, std::string folder, NodeEvents events) {
  return std::make_unique<FolderWatch>(loop, std::move(folder), std::move(events));
}

}  // namespace QelUtilVideo
