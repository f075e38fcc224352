#include <QelUtilVideo/platform/NSColor.h>

namespace QelUtilVideo {

namespace {

/// Into 0 to 1; what is not a number counts as 0.
double component(double value) {
  if (!(value > 0)) return 0;
  return value < 1 ? value : 1;
}

}  // namespace

std::shared_ptr<const NSColor> NSColor::deviceRGB(double red, double green, double blue, double alpha) {
  struct Color : NSColor {
    explicit Color(RGBA components) : NSColor(components) {}
  };
  return std::make_shared<const Color>(
      RGBA{component(red), component(green), component(blue), component(alpha)});
}

std::shared_ptr<const NSColor> NSColor::deviceWhite(double white, double alpha) {
  return deviceRGB(white, white, white, alpha);
}

std::shared_ptr<const NSColor> NSColor::pattern() {
  struct Pattern : NSColor {
    Pattern() : NSColor(std::nullopt) {}
  };
  return std::make_shared<const Pattern>();
}

}  // namespace QelUtilVideo
