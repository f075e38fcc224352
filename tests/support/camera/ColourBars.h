#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace qeltest {

/// One colour in both of its forms: BT.601, YCbCr in video range.
struct BarColour {
  std::uint8_t red, green, blue;
  std::uint8_t y, cb, cr;
};

/// What an emulated camera shows, from left to right, all of one width; and, in the lowest quarter, a white
/// square that goes along.
inline constexpr std::array<BarColour, 8> kColourBars{{{191, 191, 191, 180, 128, 128},
                                                       {191, 191, 0, 161, 44, 142},
                                                       {0, 191, 191, 131, 156, 44},
                                                       {0, 191, 0, 112, 72, 58},
                                                       {191, 0, 191, 84, 184, 198},
                                                       {191, 0, 0, 65, 100, 212},
                                                       {0, 0, 191, 35, 212, 114},
                                                       {0, 0, 0, 16, 128, 128}}};
inline constexpr BarColour kMarkColour{255, 255, 255, 235, 128, 128};
inline constexpr std::uint32_t kMarkSide = 32;

[[nodiscard]] constexpr const BarColour& barAt(std::uint32_t x, std::uint32_t width) {
  return kColourBars[static_cast<std::size_t>(x) * kColourBars.size() / width];
}

}  // namespace qeltest
