#pragma once

#include <QelUtilVideo/platform/NSScreen.h>

#include <optional>
#include <string>

namespace QelUtilVideo {

class Displays;
class SystemVersion;

namespace device {

/// The display that the screen stands for, from its description; absent when the description does not
/// say, or says it with something else than an unsigned 32-bit number. Any thread.
[[nodiscard]] std::optional<CGDirectDisplayID> screenDisplayID(const NSScreen& screen);

/// The product name that the display's information service gives; "Unknown Screen" when no service
/// matches the display's identity numbers or the services cannot be asked. Any thread.
[[nodiscard]] std::string displayProductName(Displays& displays, CGDirectDisplayID display);

/// The name that people know the display by: the screen's localized name on systems that have one
/// (10.15 and later), else its product name. Any thread.
[[nodiscard]] std::string displayName(SystemVersion& systemVersion, const NSScreen& screen,
                                      const std::string& productName);

/// The unique ID of a display as a capture device. Not the same as that of the display as a target of
/// window-list capture: one display is two sources.
[[nodiscard]] std::string deviceScreenUniqueID(CGDirectDisplayID display);
[[nodiscard]] std::string windowListScreenUniqueID(CGDirectDisplayID display);

}  // namespace device
}  // namespace QelUtilVideo
