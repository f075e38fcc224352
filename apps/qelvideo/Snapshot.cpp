#include "Snapshot.h"

#include <QelUtilVideo/CapturableScreen.h>
#include <QelUtilVideo/CapturableWindow.h>

#include <algorithm>

#include "Failure.h"
#include "HostLoop.h"

namespace qelvideo {

using namespace QelUtilVideo;

namespace {

/// Seconds in which programs draw what was hidden.
constexpr double repaintTime = 0.4;

std::shared_ptr<NSImage> snapshotImage(const Capturable& source) {
  if (const auto* window = dynamic_cast<const CapturableWindow*>(&source)) return window->snapshotImage();
  if (const auto* display = dynamic_cast<const CapturableScreen*>(&source)) return display->snapshotImage();
  return nullptr;
}

}  // namespace

CGImageRef pictureOf(const Capturable& source) {
  const std::shared_ptr<NSImage> snapshot = snapshotImage(source);
  return snapshot ? snapshot->image() : nullptr;
}

CGImageRef takeSnapshot(const Capturable& source) {
  if (CGImageRef picture = pictureOf(source)) return picture;
  if (source.isCamera()) {
    throw Failure(
        "cameras give no single pictures, they stream; `qelvideo view ID --offscreen 1280x720 "
        "--screenshot FILE.png` saves the first one");
  }
  throw Failure(source.uniqueID() +
                " gives no picture now; `qelvideo list` shows whether it is still available");
}

void letWindowsRepaint(HostLoop& loop, const SourceRefs& sources) {
  const bool isAnyWindow =
      std::any_of(sources.begin(), sources.end(), [](const auto& source) { return source->isWindow(); });
  if (isAnyWindow) loop.runUntil([] { return false; }, repaintTime);
}

void savePicture(const CGImage& picture, const std::string& path) {
  if (const std::optional<NSError> error = writePNG(picture, path)) {
    throw Failure(error->description() + "; name a file in a folder that you may write to");
  }
}

}  // namespace qelvideo
