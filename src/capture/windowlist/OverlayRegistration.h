#pragma once

#include "platform/Synchronised.h"

#include <cstdint>
#include <optional>

namespace QelUtilVideo {

class Root;

namespace windowlist {

struct WindowInfo;

/// The one window that belongs into the pictures of windows behind it although another process owns it, by
/// its owner and its level.
struct Overlay {
  std::int32_t processIdentifier = 0;
  std::int32_t windowLevel = 0;
};

/// The overlay in force. One per process; any thread.
class OverlayRegistration {
 public:
  explicit OverlayRegistration(Root& /*root*/) {}

  /// A level beyond 32 bits, which no window has, registers none.
  void set(std::int64_t windowLevel, std::int32_t processIdentifier);
  void clear();
  [[nodiscard]] std::optional<Overlay> get() const { return overlay_.copy(); }

 private:
  Synchronised<std::optional<Overlay>> overlay_;
};

/// Whether the window is that overlay.
[[nodiscard]] bool isOverlayWindow(const std::optional<Overlay>& overlay, const WindowInfo& window);

}  // namespace windowlist
}  // namespace QelUtilVideo
