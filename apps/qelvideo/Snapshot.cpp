#include "Snapshot.h"

#include <QelUtilVideo/CapturableScreen.h>

#include "Failure.h"

namespace qelvideo {

using namespace QelUtilVideo;

CGImageRef takeSnapshot(const Capturable& source) {
  const auto* display = dynamic_cast<const CapturableScreen*>(&source);
  if (!display) throw Failure(source.uniqueID() + " gives no single pictures; use `qelvideo capture`");
  const std::shared_ptr<NSImage> snapshot = display->snapshotImage();
  if (!snapshot || !snapshot->image()) {
    throw Failure(source.uniqueID() +
                  " gives no picture now; `qelvideo list` shows whether it is still available");
  }
  return snapshot->image();
}

void savePicture(const CGImage& picture, const std::string& path) {
  if (const std::optional<NSError> error = writePNG(picture, path)) {
    throw Failure(error->description() + "; name a file in a folder that you may write to");
  }
}

}  // namespace qelvideo
