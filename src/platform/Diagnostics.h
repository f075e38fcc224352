#pragma once

#include <QelUtilVideo/platform/Diagnostics.h>

namespace QelUtilVideo {

/// Says how the machine stands. Any thread.
class Diagnostics {
 public:
  virtual ~Diagnostics() = default;
  /// As `examineMachine` promises. At least one finding for the displays and one for the drawing.
  [[nodiscard]] virtual std::vector<Finding> examine() = 0;
};

}  // namespace QelUtilVideo
