#pragma once

#include <cmath>
#include <cstdint>

namespace QelUtilVideo {

/// A place in a window as the protocol takes it; the nearest that it can say.
[[nodiscard]] inline std::int16_t x11Place(double pixels) {
  if (std::isnan(pixels)) return 0;
  return static_cast<std::int16_t>(std::round(std::fmin(std::fmax(pixels, INT16_MIN), INT16_MAX)));
}

/// A length likewise; 0 for what is less than one pixel. Servers count with signed numbers inside.
[[nodiscard]] inline std::uint16_t x11Length(double pixels) {
  return pixels >= 1 ? static_cast<std::uint16_t>(x11Place(pixels)) : std::uint16_t{0};
}

}  // namespace QelUtilVideo
