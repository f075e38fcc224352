#pragma once

#include "render/FrameSnapshot.h"

#include <memory>
#include <optional>

namespace QelUtilVideo {

class NSView;
class RenderViewDelegate;

/// Tells the delegate that the view around `backend` will show another frame than the one drawn last, or none
/// any more; nothing where it is the same. `lastTimestamp`: 0 when none was drawn.
void tellOfNewFrame(const NSView& backend, const std::shared_ptr<RenderViewDelegate>& delegate,
                    const std::optional<FrameSnapshot>& frame, double lastTimestamp);

}  // namespace QelUtilVideo
