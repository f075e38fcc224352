#pragma once

#include <cstdint>
#include <optional>

namespace QelUtilVideo {

/// Which kind of device a view shows; the host gives the kinds 0 and 1 their meaning.
enum class DeviceType : std::int64_t {
  unspecified = -1,  ///< frames of every kind
  type0 = 0,
  type1 = 1,
};

/// The case with this raw value, if there is one.
[[nodiscard]] constexpr std::optional<DeviceType> makeDeviceType(std::int64_t rawValue) {
  if (rawValue < -1 || rawValue > 1) return std::nullopt;
  return static_cast<DeviceType>(rawValue);
}

}  // namespace QelUtilVideo
