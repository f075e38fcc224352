#pragma once

#include "platform/WindowServer.h"

#include <memory>

namespace QelUtilVideo {

class Platform;

namespace windowlist {

/// The window alone, whole, opaque, at full resolution; null when it has no image now. Its pixels move only
/// when somebody asks for them.
[[nodiscard]] std::shared_ptr<CGImage> windowImage(Platform& platform, CGWindowID windowID);

}  // namespace windowlist
}  // namespace QelUtilVideo
