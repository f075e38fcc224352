#include "capture/windowlist/WindowInfo.h"

#include "platform/Platform.h"

#include <span>
#include <utility>

namespace QelUtilVideo::windowlist {

namespace {

template <class T>
std::optional<T> read(const Dictionary& info, const char* key) {
  const T* value = info.get<T>(key);
  return value ? std::optional(*value) : std::nullopt;
}

}  // namespace

std::optional<WindowInfo> WindowInfo::of(Dictionary info) {
  const auto number = read<std::uint32_t>(info, kCGWindowNumber);
  if (!number) return std::nullopt;
  return WindowInfo{std::move(info), *number};
}

std::int32_t WindowInfo::ownerProcess() const {
  return read<std::int32_t>(info, kCGWindowOwnerPID).value_or(0);
}

std::string WindowInfo::ownerName() const { return read<std::string>(info, kCGWindowOwnerName).value_or(""); }

std::string WindowInfo::name() const { return read<std::string>(info, kCGWindowName).value_or(""); }

std::optional<std::int32_t> WindowInfo::layer() const { return read<std::int32_t>(info, kCGWindowLayer); }

std::optional<double> WindowInfo::alpha() const { return read<double>(info, kCGWindowAlpha); }

CGRect WindowInfo::bounds() const {
  const auto* bounds = info.get<Dictionary>(kCGWindowBounds);
  return bounds ? CGRectMakeWithDictionaryRepresentation(*bounds).value_or(CGRectNull) : CGRectNull;
}

bool WindowInfo::isOnScreen() const { return read<bool>(info, kCGWindowIsOnscreen).value_or(false); }

bool haveSameOwner(const WindowInfo& a, const WindowInfo& b) { return a.ownerProcess() == b.ownerProcess(); }

std::vector<WindowInfo> windowInfoList(Platform& platform, std::uint32_t options, CGWindowID relativeTo) {
  std::vector<WindowInfo> list;
  auto descriptions = platform.windowServer().CGWindowListCopyWindowInfo(options, relativeTo);
  if (!descriptions) return list;
  list.reserve(descriptions->size());
  for (Dictionary& description : *descriptions) {
    if (auto window = WindowInfo::of(std::move(description))) list.push_back(std::move(*window));
  }
  return list;
}

std::optional<WindowInfo> describeWindow(Platform& platform, CGWindowID windowID) {
  auto descriptions = platform.windowServer().CGWindowListCreateDescriptionFromArray(std::span(&windowID, 1));
  if (descriptions.empty()) return std::nullopt;
  return WindowInfo::of(std::move(descriptions.front()));
}

}  // namespace QelUtilVideo::windowlist
