#pragma once

#include <cstdint>
#include <string>

namespace QelUtilVideo {

/// A window of the display system by the names under which every client of its server knows it. A plain
/// value, so that what draws need not know what makes windows.
struct NativeWindow {
  std::string display;       ///< the server, as `DISPLAY` would name it
  std::uint32_t window = 0;  ///< its XID
  std::uint32_t visual = 0;  ///< the XID of its visual
  friend bool operator==(const NativeWindow&, const NativeWindow&) = default;
};

}  // namespace QelUtilVideo
