#pragma once

#include "platform/WindowServer.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {

class Platform;

namespace windowlist {

/// One window as the window server describes it, with its number. What is missing in the description, or of
/// another type than it should be, reads as the default.
struct WindowInfo {
  Dictionary info;
  CGWindowID windowID = kCGNullWindowID;

  /// Absent for a description without a number.
  [[nodiscard]] static std::optional<WindowInfo> of(Dictionary info);

  [[nodiscard]] std::int32_t ownerProcess() const;  ///< 0 by default
  [[nodiscard]] std::string ownerName() const;      ///< empty by default
  [[nodiscard]] std::string name() const;           ///< empty by default
  [[nodiscard]] std::optional<std::int32_t> layer() const;
  [[nodiscard]] std::optional<double> alpha() const;
  /// Global display coordinates (points, origin top-left, y downward); the null rectangle by default.
  [[nodiscard]] CGRect bounds() const;
  [[nodiscard]] bool isOnScreen() const;  ///< false by default
};

[[nodiscard]] bool haveSameOwner(const WindowInfo& a, const WindowInfo& b);

/// The window server's list with these options (`CGWindowListOption`), front to back. Empty when it cannot
/// be asked.
[[nodiscard]] std::vector<WindowInfo> windowInfoList(Platform& platform, std::uint32_t options,
                                                     CGWindowID relativeTo);

/// One window as it is now; absent when the window server does not know it.
[[nodiscard]] std::optional<WindowInfo> describeWindow(Platform& platform, CGWindowID windowID);

}  // namespace windowlist
}  // namespace QelUtilVideo
