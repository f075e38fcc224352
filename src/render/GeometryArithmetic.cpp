#include "render/GeometryArithmetic.h"

#include "platform/Clock.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace QelUtilVideo {

namespace {

constexpr float degreesPerSecond = 540;

/// One unit in the last place below the float nearest to a right angle.
constexpr float quarterTurn = 1.57079625129699707f;

/// Degrees that the animation of a change of quarter turns starts with; three quarter turns are shown
/// as one the other way.
float angleOfChange(std::int64_t from, std::int64_t to) {
  std::int64_t turns = from - to;
  if (turns == 3) turns = -1;
  if (turns == -3) turns = 1;
  return static_cast<float>(turns * 90);
}

float stepToZero(float angle, float seconds) {
  if (angle > 0) return std::max(angle + seconds * -degreesPerSecond, 0.0f);
  return std::min(angle + seconds * degreesPerSecond, 0.0f);
}

Transform multiply(const Transform& left, const Transform& right) {
  Transform product{};
  for (std::size_t column = 0; column < 4; ++column) {
    for (std::size_t row = 0; row < 4; ++row) {
      const float* factors = &right[4 * column];
      product[4 * column + row] = left[row] * factors[0] + left[4 + row] * factors[1] +
                                  left[8 + row] * factors[2] + left[12 + row] * factors[3];
    }
  }
  return product;
}

Transform scaling(float x, float y) {
  Transform matrix = identityTransform;
  matrix[0] = x;
  matrix[5] = y;
  return matrix;
}

Transform rotationAboutZ(float radians) {
  const float sine = std::sin(radians);
  const float cosine = std::cos(radians);
  Transform matrix = identityTransform;
  matrix[0] = cosine;
  matrix[1] = sine;
  matrix[4] = -sine;
  matrix[5] = cosine;
  return matrix;
}

}  // namespace

QuarterTurns quarterTurns(CGImagePropertyOrientation orientation) {
  switch (orientation) {
    case CGImagePropertyOrientation::up:
      return {0, false};
    case CGImagePropertyOrientation::upMirrored:
      return {0, true};
    case CGImagePropertyOrientation::down:
      return {2, false};
    case CGImagePropertyOrientation::downMirrored:
      return {2, true};
    case CGImagePropertyOrientation::leftMirrored:
      return {1, true};
    case CGImagePropertyOrientation::right:
      return {1, false};
    case CGImagePropertyOrientation::rightMirrored:
      return {3, true};
    case CGImagePropertyOrientation::left:
      return {3, false};
  }
  return {0, false};
}

bool Turn::update(CGImagePropertyOrientation orientation, bool animated, Clock& clock) {
  const QuarterTurns wanted = quarterTurns(orientation);
  if (animated && rotateAngle == 0 && rotation != wanted.rotation) {
    rotateUpdateTime = clock.CACurrentMediaTime();
    rotateAngle = angleOfChange(rotation, wanted.rotation);
  }
  bool changed = false;
  if (rotateAngle != 0) {
    const double now = clock.CACurrentMediaTime();
    rotateAngle = stepToZero(rotateAngle, static_cast<float>(now - rotateUpdateTime));
    rotateUpdateTime = now;
    changed = true;
  }
  if (wanted != QuarterTurns{rotation, mirrored}) {
    rotation = wanted.rotation;
    mirrored = wanted.mirrored;
    changed = true;
  }
  return changed;
}

float aspectRatio(PixelSize<std::int32_t> size) {
  if (size.width <= 0 || size.height <= 0) return 0;
  return static_cast<float>(size.width) / static_cast<float>(size.height);
}

float aspectRatio(PixelSize<double> size) {
  if (!(size.width > 0) || !(size.height > 0)) return 0;
  return static_cast<float>(size.width / size.height);
}

QuadExtents quadExtents(float imageAspect, float surfaceAspect, std::int64_t rotation, bool fitInBounds) {
  if (imageAspect == 0 || surfaceAspect == 0) return {};
  const bool sideways = isSideways(rotation);
  const float turnedAspect = sideways ? 1 / imageAspect : imageAspect;
  const bool spansHeight = (turnedAspect >= surfaceAspect) != fitInBounds;
  const float base = spansHeight ? 1 / surfaceAspect : 1;
  if (spansHeight != sideways) return {base * imageAspect, base};
  return {base, base / imageAspect};
}

std::array<QuadVertex, 4> quadVertices(QuadExtents extents) {
  return {{{-extents.x, -extents.y, 0, 1},
           {extents.x, -extents.y, 1, 1},
           {-extents.x, extents.y, 0, 0},
           {extents.x, extents.y, 1, 0}}};
}

Transform quadTransform(const Turn& turn, float surfaceAspect) {
  const float stretch = surfaceAspect == 0 ? 1 : surfaceAspect;
  Transform matrix = identityTransform;
  if (stretch != 1 || turn.mirrored) matrix = multiply(matrix, scaling(turn.mirrored ? -1 : 1, stretch));
  if (turn.rotateAngle != 0) {
    matrix = multiply(matrix, rotationAboutZ((turn.rotateAngle / 90) * -quarterTurn));
  }
  if (turn.rotation >= 1) {
    matrix = multiply(matrix, rotationAboutZ(static_cast<float>(-turn.rotation) * quarterTurn));
  }
  return matrix;
}

}  // namespace QelUtilVideo
