#pragma once

#include "platform/CallSafely.h"
#include "platform/Displays.h"
#include "platform/linux/core/EventLoop.h"
#include "platform/linux/x11/MonitorWatch.h"
#include "platform/linux/x11/ShmPool.h"
#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

namespace QelUtilVideo {

/// The monitors of an X server. A display's ID is the XID of its monitor's first output; a monitor
/// without outputs has the atom of its name, with the highest bit set. One point is one pixel.
class X11Displays : public Displays {
 public:
  /// There are no displays when `connection` is null, nor under XWayland. Loop and notification centre
  /// outlive the object. `trouble` is told about XWayland, and when the server is lost.
  X11Displays(std::shared_ptr<X11Connection> connection, EventLoop& loop, NotificationCenter& center,
              TroubleHandler trouble);
  ~X11Displays() override;

  // Displays
  [[nodiscard]] std::vector<std::shared_ptr<NSScreen>> screens() override;
  [[nodiscard]] CGRect CGDisplayBounds(CGDirectDisplayID display) override;
  [[nodiscard]] std::uint32_t CGDisplayVendorNumber(CGDirectDisplayID display) override;
  [[nodiscard]] std::uint32_t CGDisplayModelNumber(CGDirectDisplayID display) override;
  [[nodiscard]] std::uint32_t CGDisplaySerialNumber(CGDirectDisplayID display) override;
  [[nodiscard]] std::optional<std::vector<std::optional<Dictionary>>> displayInfoDictionaries() override;
  [[nodiscard]] std::shared_ptr<CGImage> CGDisplayCreateImage(CGDirectDisplayID display) override;

 private:
  [[nodiscard]] std::optional<Monitor> find(CGDirectDisplayID display);

  std::shared_ptr<X11Connection> connection_;  ///< null when there are no displays, as are the others
  std::shared_ptr<MonitorWatch> watch_;
  std::unique_ptr<ShmPool> pool_;
};

}  // namespace QelUtilVideo
