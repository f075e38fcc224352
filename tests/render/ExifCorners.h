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

inline bool swapsSides(CGImagePropertyOrientation orientation) {
  return static_cast<std::uint32_t>(orientation) >= 5;
}

/// Which point of the stored picture is seen at a point of the picture shown upright. Read off the EXIF
/// definition (which side of the scene the first stored row and column are), not off the library.
inline PicturePoint storedPoint(CGImagePropertyOrientation orientation, PicturePoint shown) {
  enum Side : std::uint8_t { top, bottom, left, right };
  constexpr Side firstRowAndColumn[8][2]{{top, left}, {top, right}, {bottom, right}, {bottom, left},
                                         {left, top}, {right, top}, {right, bottom}, {left, bottom}};
  const auto& [row, column] = firstRowAndColumn[static_cast<std::uint32_t>(orientation) - 1];
  const auto distanceFrom = [&](Side side) {
    const double place = side == left || side == right ? shown.x : shown.y;
    return side == bottom || side == right ? 1 - place : place;
  };
  return {distanceFrom(column), distanceFrom(row)};
}

}  // namespace QelUtilVideo
