#pragma once

#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/NSImage.h>

#include <cstdint>

namespace QelUtilVideo {

/// A source that is one application window. Any thread.
class QEL_EXPORT CapturableWindow : public virtual Capturable {
 public:
  /// The process that owns the window; 0 when nobody knows, a negative number of its own when the window
  /// server knows the owner but not its process.
  [[nodiscard]] virtual std::int32_t processIdentifier() const = 0;
  [[nodiscard]] virtual std::uint32_t windowID() const = 0;
  /// The window's title; empty when it has none.
  [[nodiscard]] virtual std::string windowName() const = 0;
  [[nodiscard]] virtual bool isOnScreen() const = 0;
  /// Points, in the coordinates of `NSScreen`, y upward.
  [[nodiscard]] virtual CGRect frame() const = 0;
  /// What the window shows now; null when it cannot be captured.
  [[nodiscard]] virtual std::shared_ptr<NSImage> snapshotImage() const = 0;
};

}  // namespace QelUtilVideo
