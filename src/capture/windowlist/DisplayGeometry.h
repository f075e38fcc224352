#pragma once

#include "platform/Synchronised.h"

#include <QelUtilVideo/platform/CGGeometry.h>

#include <memory>
#include <vector>

namespace QelUtilVideo {

class Root;

namespace windowlist {

/// Where the listed displays lie, in global display coordinates (points, origin top-left, y downward).
/// Immutable, so that a reader sees one arrangement whole.
struct DisplayGeometry {
  std::vector<CGRect> screenBounds;  ///< one per display, in list order
  CGRect desktopBounds;              ///< holds the origin and all displays
  double primaryScreenHeight = 0;    ///< of the first display; 0 without one
};

/// The geometry of displays with these bounds.
[[nodiscard]] DisplayGeometry makeDisplayGeometry(std::vector<CGRect> screenBounds);

/// The geometry in force. One per process; any thread. Empty until displays were first listed.
class CurrentDisplayGeometry {
 public:
  explicit CurrentDisplayGeometry(Root& root);

  [[nodiscard]] std::shared_ptr<const DisplayGeometry> get() const { return geometry_.copy(); }
  void set(DisplayGeometry geometry);

 private:
  Synchronised<std::shared_ptr<const DisplayGeometry>> geometry_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
