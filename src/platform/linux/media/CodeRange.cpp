#include "platform/linux/media/CodeRange.h"

#include <cstddef>

namespace QelUtilVideo {

namespace {

template <class Map>
void mapInPlace(const Rows& plane, std::size_t bytesPerPixel, Map map) {
  const std::size_t bytes = bytesPerPixel * static_cast<std::size_t>(plane.width);
  for (std::size_t y = 0; y < static_cast<std::size_t>(plane.height); ++y) {
    std::uint8_t* const row = plane.row(y);
    for (std::size_t x = 0; x < bytes; ++x) row[x] = map(row[x]);
  }
}

}  // namespace

void lumaToVideoRange(const Rows& luma) {
  mapInPlace(luma, 1, [](std::uint8_t code) { return videoLuma(code); });
}

void chromaToVideoRange(const Rows& chroma) {
  mapInPlace(chroma, 2, [](std::uint8_t code) { return videoChroma(code); });
}

}  // namespace QelUtilVideo
