#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>

#include <array>
#include <cstdint>

namespace QelUtilVideo {

inline constexpr std::array allOrientations{CGImagePropertyOrientation::up,
                                            CGImagePropertyOrientation::upMirrored,
                                            CGImagePropertyOrientation::down,
                                            CGImagePropertyOrientation::downMirrored,
                                            CGImagePropertyOrientation::leftMirrored,
                                            CGImagePropertyOrientation::right,
                                            CGImagePropertyOrientation::rightMirrored,
                                            CGImagePropertyOrientation::left};

/// A place in a picture: from (0, 0) at the top left to (1, 1) at the bottom right.
struct PicturePoint {
  double x;
  double y;
};

/// Which point of the stored picture is seen at a point of the picture shown upright. Read off the EXIF
/// definition (which side of the scene the first stored row and column are), not off the library.
inline PicturePoint storedPoint(CGImagePropertyOrientation orientation, PicturePoint shown) {
  const auto [x, y] = shown;
  switch (orientation) {
    case CGImagePropertyOrientation::up:  // row 0 top, column 0 left
      return {x, y};
    case CGImagePropertyOrientation::upMirrored:  // top, right
      return {1 - x, y};
    case CGImagePropertyOrientation::down:  // bottom, right
      return {1 - x, 1 - y};
    case CGImagePropertyOrientation::downMirrored:  // bottom, left
      return {x, 1 - y};
    case CGImagePropertyOrientation::leftMirrored:  // left, top
      return {y, x};
    case CGImagePropertyOrientation::right:  // right, top
      return {y, 1 - x};
    case CGImagePropertyOrientation::rightMirrored:  // right, bottom
      return {1 - y, 1 - x};
    case CGImagePropertyOrientation::left:  // left, bottom
      return {1 - y, x};
  }
  return {x, y};
}

inline bool swapsSides(CGImagePropertyOrientation orientation) {
  return static_cast<std::uint32_t>(orientation) >= 5;
}

}  // namespace QelUtilVideo
