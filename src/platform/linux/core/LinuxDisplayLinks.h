#pragma once

#include "platform/DisplayLinks.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

namespace QelUtilVideo {

class Displays;

/// Links with a thread each that sleeps from refresh to refresh at the rate of the fastest display.
class LinuxDisplayLinks final : public DisplayLinks {
 public:
  /// Both outlive the object and its links.
  LinuxDisplayLinks(Displays& displays, NotificationCenter& center) : displays_(displays), center_(center) {}

  [[nodiscard]] CVReturn CVDisplayLinkCreateWithActiveCGDisplays(
      std::unique_ptr<CVDisplayLink>& link) override;

 private:
  Displays& displays_;
  NotificationCenter& center_;
};

}  // namespace QelUtilVideo
