#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <memory>
#include <optional>

namespace QelUtilVideo {

/// A colour. Immutable; any thread. Components are from 0 to 1 (others are brought into that range); alpha
/// is not multiplied in.
class QEL_EXPORT NSColor {
 public:
  struct RGBA {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
    friend bool operator==(const RGBA&, const RGBA&) = default;
  };

  /// A colour of the device RGB colour space.
  static std::shared_ptr<const NSColor> deviceRGB(double red, double green, double blue, double alpha = 1);
  /// A grey of the device colour space.
  static std::shared_ptr<const NSColor> deviceWhite(double white, double alpha = 1);
  /// A colour that is a repeated picture; it has no components in any colour space.
  static std::shared_ptr<const NSColor> pattern();

  /// The components in the device RGB colour space; absent when the colour cannot be converted.
  [[nodiscard]] std::optional<RGBA> usingDeviceRGBColorSpace() const { return components_; }

 private:
  explicit NSColor(std::optional<RGBA> components) : components_(components) {}
  std::optional<RGBA> components_;
};

}  // namespace QelUtilVideo
