#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

namespace QelUtilVideo {

/// A point in points. The coordinate system is stated wherever one is used.
struct CGPoint {
  double x = 0;
  double y = 0;
  friend bool operator==(const CGPoint&, const CGPoint&) = default;
};

/// An extent in points or pixels, as stated wherever one is used.
struct CGSize {
  double width = 0;
  double height = 0;
  friend bool operator==(const CGSize&, const CGSize&) = default;
};

/// An axis-aligned rectangle. In global display coordinates `origin` is the top-left corner and y
/// grows downward; in views and windows it is the bottom-left corner and y grows upward.
struct CGRect {
  CGPoint origin;
  CGSize size;
  friend bool operator==(const CGRect&, const CGRect&) = default;
};

/// The rectangle that stands for "no rectangle". Unions ignore it and nothing lies inside it.
inline constexpr CGRect CGRectNull{
    {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()}, {0, 0}};
inline constexpr CGRect CGRectZero{};

constexpr CGRect CGRectMake(double x, double y, double width, double height) {
  return {{x, y}, {width, height}};
}
constexpr double CGRectGetMinX(const CGRect& rect) { return rect.origin.x; }
constexpr double CGRectGetMinY(const CGRect& rect) { return rect.origin.y; }
constexpr double CGRectGetMaxX(const CGRect& rect) { return rect.origin.x + rect.size.width; }
constexpr double CGRectGetMaxY(const CGRect& rect) { return rect.origin.y + rect.size.height; }

constexpr bool CGRectIsNull(const CGRect& rect) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  return rect.origin.x == infinity || rect.origin.y == infinity;
}

/// Whether the point lies inside: the minimum edges belong to the rectangle, the maximum edges do not.
constexpr bool CGRectContainsPoint(const CGRect& rect, const CGPoint& point) {
  return !CGRectIsNull(rect) && point.x >= CGRectGetMinX(rect) && point.x < CGRectGetMaxX(rect) &&
         point.y >= CGRectGetMinY(rect) && point.y < CGRectGetMaxY(rect);
}

/// The smallest rectangle that holds both; a null rectangle adds nothing, an empty one does.
constexpr CGRect CGRectUnion(const CGRect& a, const CGRect& b) {
  if (CGRectIsNull(a)) return b;
  if (CGRectIsNull(b)) return a;
  const double x = std::min(CGRectGetMinX(a), CGRectGetMinX(b));
  const double y = std::min(CGRectGetMinY(a), CGRectGetMinY(b));
  return {
      {x, y},
      {std::max(CGRectGetMaxX(a), CGRectGetMaxX(b)) - x, std::max(CGRectGetMaxY(a), CGRectGetMaxY(b)) - y}};
}

/// What lies in both, with zero width or height where they only touch; null where they are apart.
constexpr CGRect CGRectIntersection(const CGRect& a, const CGRect& b) {
  if (CGRectIsNull(a) || CGRectIsNull(b)) return CGRectNull;
  const double x = std::max(CGRectGetMinX(a), CGRectGetMinX(b));
  const double y = std::max(CGRectGetMinY(a), CGRectGetMinY(b));
  const double width = std::min(CGRectGetMaxX(a), CGRectGetMaxX(b)) - x;
  const double height = std::min(CGRectGetMaxY(a), CGRectGetMaxY(b)) - y;
  return width < 0 || height < 0 ? CGRectNull : CGRect{{x, y}, {width, height}};
}

/// The rectangle without a margin of `dx` at its left and right and `dy` at its top and bottom, wider and
/// higher for negative ones; null when nothing would be left, and for null.
constexpr CGRect CGRectInset(const CGRect& rect, double dx, double dy) {
  if (CGRectIsNull(rect)) return CGRectNull;
  const CGSize size{rect.size.width - 2 * dx, rect.size.height - 2 * dy};
  if (size.width < 0 || size.height < 0) return CGRectNull;
  return {{rect.origin.x + dx, rect.origin.y + dy}, size};
}

/// The smallest rectangle of whole numbers that holds it; null for null.
[[nodiscard]] inline CGRect CGRectIntegral(const CGRect& rect) {
  if (CGRectIsNull(rect)) return CGRectNull;
  const double x = std::floor(CGRectGetMinX(rect)), y = std::floor(CGRectGetMinY(rect));
  return {{x, y}, {std::ceil(CGRectGetMaxX(rect)) - x, std::ceil(CGRectGetMaxY(rect)) - y}};
}

/// Whether both are the same rectangle; all null ones are.
constexpr bool CGRectEqualToRect(const CGRect& a, const CGRect& b) {
  return a == b || (CGRectIsNull(a) && CGRectIsNull(b));
}

}  // namespace QelUtilVideo
