#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <string>

namespace QelUtilVideo {

using CGDirectDisplayID = std::uint32_t;

/// One display as it stood when it was listed. Immutable; any thread. A change of the display
/// arrangement makes new objects.
class QEL_EXPORT NSScreen : public virtual NSObject {
 public:
  struct Properties {
    Dictionary deviceDescription;  ///< "NSScreenNumber": the display ID as an unsigned 32-bit number
    std::string localizedName;
    CGRect frame;                       ///< points, origin bottom-left of the primary display, y upward
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
