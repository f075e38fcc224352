#pragma once

#include <cstdint>

namespace QelUtilVideo {

/// How a picture must be turned and mirrored to be shown upright; the EXIF orientations. The name says
/// where the first row and column of the stored picture belong. A value outside 1 to 8 counts as `up`.
enum class CGImagePropertyOrientation : std::uint32_t {
  up = 1,
  upMirrored = 2,
  down = 3,
  downMirrored = 4,
  leftMirrored = 5,
  right = 6,
  rightMirrored = 7,
  left = 8,
};

}  // namespace QelUtilVideo
