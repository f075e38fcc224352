#pragma once

#include <QelUtilVideo/platform/Export.h>

namespace QelKit {

/// Settings of the companion framework that concern the whole process. Any thread.
class QEL_EXPORT QelManager {
 public:
  QelManager() = delete;
  /// Whether log lines go to `QelAppLog` by default. Read once, when the first line is logged or the
  /// first logger is installed, whichever comes first. False unless set.
  [[nodiscard]] static bool isLoggingEnabled();
  static void setLoggingEnabled(bool enabled);
};

}  // namespace QelKit
