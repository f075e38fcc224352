#pragma once

#include "platform/linux/media/LockedPixels.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace QelUtilVideo {

/// Converts a picture of red, green and blue into a bi-planar one of the same size, BT.601, a strip at a
/// time: what is shuffled stays in the cache until it is converted.
class StripConverter {
 public:
  /// Brings pixels into the order blue, green, red, anything, as libyuv's functions do.
  using Shuffle = int (*)(const std::uint8_t* source, int sourceStride, std::uint8_t* target,
                          int targetStride, int width, int height);

  /// `shuffle` is null where the pixels are in that order already. Throws `std::bad_alloc`.
  StripConverter(const SourceRows& picture, Shuffle shuffle, const LockedPixels& target, bool isFullRange);

  void convert();

 private:
  void convertStrip(std::size_t y, int rows);

  SourceRows picture_;
  Rows luma_;
  Rows chroma_;
  Shuffle shuffle_;
  bool isFullRange_;
  std::vector<std::uint8_t> shuffled_;
  std::vector<std::uint8_t> separate_;
};

}  // namespace QelUtilVideo
