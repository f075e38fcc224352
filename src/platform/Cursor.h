#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/NSImage.h>

#include <memory>
#include <optional>

namespace QelUtilVideo {

/// The cursor as it is shown now.
struct NSCursor {
  std::shared_ptr<NSImage> image;  ///< null, or without a bitmap: cannot be drawn
  CGPoint hotSpot;                 ///< points from the image's top-left corner
};

/// The mouse cursor. Any thread.
class Cursor {
 public:
  virtual ~Cursor() = default;
  /// Position in global display coordinates (points, origin top-left); absent without a pointer.
  [[nodiscard]] virtual std::optional<CGPoint> CGEventGetLocation() = 0;
  /// Absent when there is no cursor, or nobody can tell.
  [[nodiscard]] virtual std::optional<NSCursor> currentSystemCursor() = 0;
};

}  // namespace QelUtilVideo
