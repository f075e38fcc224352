#include "render/FrameSnapshot.h"

#include "platform/HostCall.h"

#include <QelUtilVideo/RenderViewData.h>
#include <QelUtilVideo/RenderViewDataSource.h>

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

}  // namespace QelUtilVideo
