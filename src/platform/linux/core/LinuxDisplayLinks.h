#pragma once

#include "platform/DisplayLinks.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

namespace QelUtilVideo {

class Displays;
class MainLoop;

/// Links with a thread each that sleeps from refresh to refresh at the rate of the fastest display.
class LinuxDisplayLinks final : public DisplayLinks {
 public:
  /// All outlive the object and its links.
  LinuxDisplayLinks(Displays& displays, NotificationCenter& center, MainLoop& loop)
      : displays_(displays), center_(center), loop_(loop) {}

  [[nodiscard]] CVReturn CVDisplayLinkCreateWithActiveCGDisplays(
      std::unique_ptr<CVDisplayLink>& link) override;

 private:
  Displays& displays_;
  NotificationCenter& center_;
  MainLoop& loop_;
};

}  // namespace QelUtilVideo
