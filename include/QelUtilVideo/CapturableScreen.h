#pragma once

#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/platform/NSImage.h>
#include <QelUtilVideo/platform/NSScreen.h>

namespace QelUtilVideo {

/// A source that is a whole display. Any thread.
class QEL_EXPORT CapturableScreen : public virtual Capturable {
 public:
  [[nodiscard]] virtual CGDirectDisplayID displayID() const = 0;
  /// The display's screen object; another one after the display arrangement changed.
  [[nodiscard]] virtual std::shared_ptr<NSScreen> screen() const = 0;
  /// What the display shows now, without the cursor; null when it cannot be captured.
  [[nodiscard]] virtual std::shared_ptr<NSImage> snapshotImage() const = 0;
};

}  // namespace QelUtilVideo
