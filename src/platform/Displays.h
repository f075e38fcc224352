#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/Dictionary.h>
#include <QelUtilVideo/platform/NSScreen.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// Posted on the main thread, without an object, after the display arrangement changed; a burst of
/// changes is posted once.
inline constexpr const char* NSApplicationDidChangeScreenParametersNotification =
    "NSApplicationDidChangeScreenParametersNotification";

/// The machine's displays. Any thread. Without a display server, or after it died, lists are empty,
/// images are null, bounds are zero; nothing fails harder than that.
class Displays {
 public:
  virtual ~Displays() = default;

  /// The screens, the primary one first. Their description holds "NSScreenNumber".
  [[nodiscard]] virtual std::vector<std::shared_ptr<NSScreen>> screens() = 0;
  /// Where the display lies, in global display coordinates (points, origin top-left, y downward).
  [[nodiscard]] virtual CGRect CGDisplayBounds(CGDirectDisplayID display) = 0;
  /// Identity numbers; for a display that does not tell: 0x756e6b6e, 0 and 0.
  [[nodiscard]] virtual std::uint32_t CGDisplayVendorNumber(CGDirectDisplayID display) = 0;
  [[nodiscard]] virtual std::uint32_t CGDisplayModelNumber(CGDirectDisplayID display) = 0;
  [[nodiscard]] virtual std::uint32_t CGDisplaySerialNumber(CGDirectDisplayID display) = 0;
  /// The information dictionaries of the services called "IODisplayConnect", in the system's order;
  /// an entry is absent when a service has none. The list is absent when the services cannot be asked.
  /// Keys: "DisplayVendorID", "DisplayProductID", "DisplaySerialNumber" (unsigned 32-bit),
  /// "DisplayProductName" (dictionary from locale to name).
  [[nodiscard]] virtual std::optional<std::vector<std::optional<Dictionary>>> displayInfoDictionaries() = 0;

  /// What the display shows now, without the cursor; null when it cannot be had. The bytes belong to
  /// the image alone.
  [[nodiscard]] virtual std::shared_ptr<CGImage> CGDisplayCreateImage(CGDirectDisplayID display) = 0;
};

}  // namespace QelUtilVideo
