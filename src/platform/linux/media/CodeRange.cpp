#include "platform/linux/media/CodeRange.h"

namespace QelUtilVideo {

namespace {

// Fixed point with 16 bits behind the point, the rounding in the summand: exact for each of the 256 codes.
constexpr std::uint32_t narrowedLuma(std::uint32_t code) { return (code * 56284 + 1'081'344) >> 16; }
constexpr std::uint32_t narrowedChroma(std::uint32_t code) { return (code * 57569 + 1'052'544) >> 16; }

constexpr bool isExact() {
  for (std::uint32_t code = 0; code < 256; ++code) {
    // Twice the value plus one, halved: rounded to the nearest.
    if (narrowedLuma(code) != (438 * code + 255) / 510 + 16) return false;
    const std::uint32_t chroma = (448 * code + 255 * 257 - 448 * 128) / 510;
    if (narrowedChroma(code) != chroma) return false;
  }
  return true;
}
static_assert(isExact());

/// Written so that compilers make vectors of it.
template <auto narrowed>
void narrow(const BytePlane& plane) {
  for (std::size_t y = 0; y < plane.rows; ++y) {
    std::uint8_t* row = plane.first + y * plane.bytesPerRow;
    for (std::size_t x = 0; x < plane.rowBytes; ++x) row[x] = static_cast<std::uint8_t>(narrowed(row[x]));
  }
}

}  // namespace

void narrowLuma(const BytePlane& plane) { narrow<narrowedLuma>(plane); }
void narrowChroma(const BytePlane& plane) { narrow<narrowedChroma>(plane); }

}  // namespace QelUtilVideo
