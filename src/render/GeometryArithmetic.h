#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>

#include <array>
#include <cstdint>
#include <utility>

namespace QelUtilVideo {

class Clock;

/// A size in pixels, in the numbers in which a backend counts them.
template <class Number>
struct PixelSize {
  Number width{};
  Number height{};
  friend bool operator==(const PixelSize&, const PixelSize&) = default;
};

/// What an orientation asks for: clockwise quarter turns (0 to 3) and a horizontal mirror.
struct QuarterTurns {
  std::int64_t rotation = 0;
  bool mirrored = false;
  friend bool operator==(const QuarterTurns&, const QuarterTurns&) = default;
};
[[nodiscard]] QuarterTurns quarterTurns(CGImagePropertyOrientation orientation);

/// Whether a picture with this rotation lies on its side.
[[nodiscard]] constexpr bool isSideways(std::int64_t rotation) { return rotation == 1 || rotation == 3; }

/// How a picture is turned at the moment: the quarter turns of its orientation, which change at once,
/// and the angle that an animated change still has to go.
struct Turn {
  std::int64_t rotation = 0;
  bool mirrored = false;
  float rotateAngle = 0;        ///< degrees; 0: no animation is running
  double rotateUpdateTime = 0;  ///< seconds of the media clock, of the last step of the animation

  /// Takes over an orientation. A change of quarter turns starts an animation when `animated` is set
  /// and none is running; one that is running moves on. Answers whether the picture has to be placed
  /// anew.
  bool update(CGImagePropertyOrientation orientation, bool animated, Clock& clock);
};

/// The image's size on the surface: sides swapped where it lies on its side.
template <class Number>
[[nodiscard]] constexpr PixelSize<Number> turnedSize(PixelSize<Number> image, std::int64_t rotation) {
  if (isSideways(rotation)) std::swap(image.width, image.height);
  return image;
}

/// The automatic fit mode: fit inside when one of the two is landscape and the other is not, cover
/// otherwise. Squares count as portrait.
template <class Number>
[[nodiscard]] constexpr bool chooseFitInBounds(PixelSize<Number> surface, PixelSize<Number> turnedImage) {
  return (surface.height < surface.width) != (turnedImage.height < turnedImage.width);
}

/// Width over height; 0 for a size that has no area. Whole pixels become floats before the division,
/// fractional ones after it.
[[nodiscard]] float aspectRatio(PixelSize<std::int32_t> size);
[[nodiscard]] float aspectRatio(PixelSize<double> size);

/// Half the sides of the quad that carries the picture, before it is turned. One unit is half the
/// surface's width, on both axes.
struct QuadExtents {
  float x = 0;
  float y = 0;
};
/// Where a ratio is 0 the quad has no extent and nothing is drawn.
[[nodiscard]] QuadExtents quadExtents(float imageAspect, float surfaceAspect, std::int64_t rotation,
                                      bool fitInBounds);

/// A corner of the quad; (u, v) are texture coordinates, v downward from the picture's first row.
struct QuadVertex {
  float x, y, u, v;
};
/// The corners in the order of a triangle strip.
[[nodiscard]] std::array<QuadVertex, 4> quadVertices(QuadExtents extents);

/// A 4 × 4 matrix, column after column.
using Transform = std::array<float, 16>;
inline constexpr Transform identityTransform{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
/// Takes the quad to clip space: turned clockwise, then mirrored, then stretched to the surface.
[[nodiscard]] Transform quadTransform(const Turn& turn, float surfaceAspect);

}  // namespace QelUtilVideo
