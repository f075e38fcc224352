#pragma once

#include <cstddef>
#include <cstdint>

namespace QelUtilVideo {

/// A plane of bytes, in place.
struct BytePlane {
  std::uint8_t* first = nullptr;
  std::size_t bytesPerRow = 0;  ///< distance of two rows
  std::size_t rowBytes = 0;     ///< of each row, those that count
  std::size_t rows = 0;
};

// From full range to video range, rounded to the nearest code: luma 16 + 219 y / 255, chroma
// 128 + 224 (c - 128) / 255 (BT.601).
void narrowLuma(const BytePlane& plane);
void narrowChroma(const BytePlane& plane);

}  // namespace QelUtilVideo
