#include "render/FrameSnapshot.h"

#include "platform/HostCall.h"

#include <QelUtilVideo/RenderView.h>
#include <QelUtilVideo/RenderViewData.h>
#include <QelUtilVideo/RenderViewDataSource.h>
#include <QelUtilVideo/RenderViewDelegate.h>

namespace QelUtilVideo {

std::optional<FrameSnapshot> FrameSnapshot::take(const std::shared_ptr<RenderViewDataSource>& source) {
  std::optional<FrameSnapshot> frame;
  if (!source) return frame;
  callHost("RenderViewDataSource", [&] {
    const auto data = source->data();
    if (!data) return;
    frame = FrameSnapshot{data->timestamp(), data->pixelBuffer(), data->orientation(), data->deviceID(),
                          data->deviceType()};
  });
  return frame;
}

void tellOfNewFrame(const NSView& backend, const std::shared_ptr<RenderViewDelegate>& delegate,
                    const std::optional<FrameSnapshot>& frame, double lastTimestamp) {
  const double timestamp = frame ? frame->timestamp : 0;
  if (!delegate || timestamp == lastTimestamp) return;
  const auto view = std::dynamic_pointer_cast<RenderView>(backend.superview());
  if (view) callHost("RenderViewDelegate", [&] { delegate->renderViewWillRender(*view); });
}

}  // namespace QelUtilVideo
