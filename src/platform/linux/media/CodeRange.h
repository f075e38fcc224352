#pragma once

#include "platform/linux/media/LockedPixels.h"

#include <cstdint>

namespace QelUtilVideo {

namespace detail {

/// Rounded down, in 16 bits throughout, so that compilers make vectors of it. Exact up to 65,534.
constexpr std::uint16_t over255(std::uint16_t number) {
  const auto carried = static_cast<std::uint16_t>(number + 1 + (number >> 8));
  return static_cast<std::uint16_t>(carried >> 8);
}

}  // namespace detail

/// The code in video range of a luma code in full range: 16 + 219 y / 255, rounded to the nearest.
constexpr std::uint8_t videoLuma(std::uint8_t code) {
  return static_cast<std::uint8_t>(detail::over255(static_cast<std::uint16_t>(219 * code + 16 * 255 + 127)));
}

/// The same of a chroma code: 128 + 224 (c - 128) / 255, rounded to the nearest.
constexpr std::uint8_t videoChroma(std::uint8_t code) {
  return static_cast<std::uint8_t>(
      detail::over255(static_cast<std::uint16_t>(224 * code + 128 * (255 - 224) + 127)));
}

// A plane's codes of full range become those of video range, in place. Chroma is interleaved: its width
// counts pairs.
void lumaToVideoRange(const Rows& luma);
void chromaToVideoRange(const Rows& chroma);

}  // namespace QelUtilVideo
