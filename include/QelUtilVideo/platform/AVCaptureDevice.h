#pragma once

#include <QelUtilVideo/platform/Export.h>
#include <QelUtilVideo/platform/NSObject.h>

#include <string>

namespace QelUtilVideo {

/// What a capture device delivers.
enum class AVMediaType { video, audio };

/// A device that captures, such as a camera. Any thread.
class QEL_EXPORT AVCaptureDevice : public virtual NSObject {
 public:
  /// Stable while the device stays in the same place, over unplugging too; distinct for two devices of one
  /// model.
  [[nodiscard]] virtual std::string uniqueID() const = 0;
  /// For people.
  [[nodiscard]] virtual std::string localizedName() const = 0;
  /// Whether it is still there.
  [[nodiscard]] virtual bool isConnected() const = 0;
  [[nodiscard]] virtual bool hasMediaType(AVMediaType type) const = 0;
};

}  // namespace QelUtilVideo
