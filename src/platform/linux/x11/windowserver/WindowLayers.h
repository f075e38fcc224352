#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace QelUtilVideo {

/// What a window says it is, in `_NET_WM_WINDOW_TYPE`.
enum class WindowType : std::uint8_t {
  normal,
  desktop,
  dock,
  toolbar,
  menu,
  utility,
  splash,
  dialog,
  dropdownMenu,
  popupMenu,
  tooltip,
  notification,
  combo,
  dnd,
};

/// What decides about a window's layer.
struct LayerFacts {
  std::optional<WindowType> type = {};  ///< the first one of its list that is known
  bool isOverrideRedirect = false;      ///< no window manager decides about it
  bool isTransient = false;             ///< it belongs to another window
  bool isModal = false;
  bool isSlideShow = false;  ///< a presentation program shows its slides in it
};

/// The desktop's layer, far behind all windows.
inline constexpr std::int32_t kDesktopLayer = std::numeric_limits<std::int32_t>::min() + 20;

/// How high above ordinary windows, which have layer 0, a window belongs. Whether a window is kept above or
/// below others or fills the screen makes no difference: it stays what it is.
[[nodiscard]] std::int32_t windowLayer(const LayerFacts& facts);

}  // namespace QelUtilVideo
