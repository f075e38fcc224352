#pragma once

#include "capture/windowlist/WindowInfo.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <functional>
#include <optional>
#include <vector>

namespace QelUtilVideo {

class Root;

namespace windowlist {

/// What capturing a window came to. Without a description the window is gone; with one and no frame it is
/// there, but gives nothing now. Description and ID are those of the window that was captured.
struct CaptureResult {
  std::optional<Dictionary> description;
  CGWindowID windowID = kCGNullWindowID;
  CVPixelBufferRef pixelBuffer;

  [[nodiscard]] bool isFrame() const { return description && pixelBuffer; }
};

/// What to do where the window cannot be captured; gets the window list that said so.
using Fallback = std::function<CaptureResult(const std::vector<WindowInfo>& list)>;

/// Captures a window together with what its application shows directly over it (raised and unnamed windows)
/// and with the registered overlay, without anybody else's windows. `info` is the window as its target was
/// made from it. One window list and one image are asked for. Main thread.
[[nodiscard]] CaptureResult compositeCapture(Root& root, const WindowInfo& info, const Fallback& fallback);

}  // namespace windowlist
}  // namespace QelUtilVideo
