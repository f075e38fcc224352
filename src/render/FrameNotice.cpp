#include "render/FrameNotice.h"

#include "platform/HostCall.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewDelegate.h>

namespace QelUtilVideo {

void tellOfNewFrame(const NSView& backend, const std::shared_ptr<RenderViewDelegate>& delegate,
                    const std::optional<FrameSnapshot>& frame, double lastTimestamp) {
  const double timestamp = frame ? frame->timestamp : 0;
  if (!delegate || timestamp == lastTimestamp) return;
  const auto view = std::dynamic_pointer_cast<RenderView>(backend.superview());
  if (view) callHost("RenderViewDelegate", [&] { delegate->renderViewWillRender(*view); });
}

}  // namespace QelUtilVideo
