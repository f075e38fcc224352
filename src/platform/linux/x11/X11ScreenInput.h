#pragma once

#include "platform/linux/core/CaptureStream.h"

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>

#include <functional>
#include <memory>
#include <string>

namespace QelUtilVideo {

/// Turns a picture of a display, and the cursor's at a place in it (null: none), into a frame; null when that
/// cannot be done. One thread at a time.
using MakeScreenFrame = std::function<CVPixelBufferRef(std::shared_ptr<CGImage> picture,
                                                       const CGImageRef& cursor, CGPoint place)>;

/// What a display of an X server shows, thirty times a second, with the cursor. Each stream has a thread and
/// a connection of its own. While nothing changes, the last frame goes out again.
class X11ScreenInput final : public LinuxCaptureInput {
 public:
  /// `server` as `DISPLAY` names it; `makeMaker` makes one maker for each stream.
  X11ScreenInput(std::string server, CGDirectDisplayID display, std::function<MakeScreenFrame()> makeMaker);

  [[nodiscard]] Result<std::unique_ptr<CaptureStream>> open(
      const std::shared_ptr<StreamReceiver>& receiver) override;

 private:
  const std::string server_;
  const CGDirectDisplayID display_;
  const std::function<MakeScreenFrame()> makeMaker_;
};

}  // namespace QelUtilVideo
