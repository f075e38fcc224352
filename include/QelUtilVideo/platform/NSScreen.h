#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <string>

namespace QelUtilVideo {

using CGDirectDisplayID = std::uint32_t;

/// One display as it stood when it was listed. Immutable; any thread. A change of the display
/// arrangement makes new objects.
///
/// Places are points from the left end of the desktop and from a line that lies the primary display's height
/// below its top end, y upward: from the primary display's bottom-left corner where that display lies at the
/// desktop's top left, as most do.
class QEL_EXPORT NSScreen : public virtual NSObject {
 public:
  struct Properties {
    Dictionary deviceDescription;  ///< "NSScreenNumber": the display ID as an unsigned 32-bit number
    std::string localizedName;
    CGRect frame;                       ///< points
    double backingScaleFactor = 1;      ///< pixels per point
    double maximumFramesPerSecond = 0;  ///< 0: unknown
  };
  explicit NSScreen(Properties properties) : properties_(std::move(properties)) {}

  [[nodiscard]] const Dictionary& deviceDescription() const { return properties_.deviceDescription; }
  [[nodiscard]] const std::string& localizedName() const { return properties_.localizedName; }
  [[nodiscard]] CGRect frame() const { return properties_.frame; }
  [[nodiscard]] double backingScaleFactor() const { return properties_.backingScaleFactor; }
  [[nodiscard]] double maximumFramesPerSecond() const { return properties_.maximumFramesPerSecond; }

 private:
  Properties properties_;
};

}  // namespace QelUtilVideo
