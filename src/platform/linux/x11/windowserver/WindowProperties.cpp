#include "platform/linux/x11/windowserver/WindowProperties.h"

#include <limits>
#include <numeric>

namespace QelUtilVideo {

namespace {

std::optional<std::int32_t> processNumber(std::optional<std::uint32_t> number) {
  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  if (!number || *number == 0 || *number > kMost) return std::nullopt;
  return static_cast<std::int32_t>(*number);
}

}  // namespace

std::optional<std::string> windowName(const WindowProperties& properties) {
  if (properties.netName && !properties.netName->empty()) return properties.netName;
  return properties.legacyName;
}

double windowAlpha(std::optional<std::uint32_t> opacity) {
  constexpr std::uint32_t kOpaque = std::numeric_limits<std::uint32_t>::max();
  return !opacity || *opacity == kOpaque ? 1.0 : *opacity / double{kOpaque};
}

PixelRect withoutShadows(const PixelRect& area,
                         const std::optional<std::array<std::uint32_t, 4>>& frameExtents) {
  if (!frameExtents) return area;
  const auto& [left, right, top, bottom] = *frameExtents;
  const std::uint64_t across = std::uint64_t{left} + right, down = std::uint64_t{top} + bottom;
  if (across >= static_cast<std::uint64_t>(area.width) || down >= static_cast<std::uint64_t>(area.height)) {
    return area;
  }
  return {area.x + static_cast<int>(left), area.y + static_cast<int>(top),
          area.width - static_cast<int>(across), area.height - static_cast<int>(down)};
}

std::int32_t ownerProcess(std::optional<std::uint32_t> knownToServer,
                          std::optional<std::uint32_t> namedByClient, std::uint32_t clientNumber) {
  if (const auto known = processNumber(knownToServer)) return *known;
  if (const auto named = processNumber(namedByClient)) return *named;
  return -1 - static_cast<std::int32_t>(clientNumber & std::numeric_limits<std::int16_t>::max());
}

}  // namespace QelUtilVideo
