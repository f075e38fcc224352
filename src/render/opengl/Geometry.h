#pragma once

#include "render/GeometryArithmetic.h"

#include <array>
#include <cstdint>

namespace QelUtilVideo::opengl {

/// Places one view's picture on its viewport: which way it is turned, whether it fits inside or covers,
/// and the quad and transform that follow. Belongs to the drawing; the caller sees to the exclusion.
/// Each frame: `updateOrientation`, `resize`, and, after a change, `makeVertices` and `makeTransform`.
class Geometry {
 public:
  using Size = PixelSize<std::int32_t>;
  struct Placement {
    bool changed = false;  ///< quad and transform have to be sent again
    Size effectiveSize;    ///< the image's size as it is shown, sides swapped where it lies on its side
  };

  explicit Geometry(Clock& clock) : clock_(clock) {}

  /// Takes over a frame's orientation and size in pixels, and moves a running animation on.
  void updateOrientation(CGImagePropertyOrientation orientation, bool animated, Size image);
  [[nodiscard]] Placement resize(Size viewport);
  /// Four corners of x, y, u, v each.
  [[nodiscard]] std::array<float, 16> makeVertices() const;
  [[nodiscard]] Transform makeTransform() const;

  [[nodiscard]] Size viewportSize() const { return viewportSize_; }
  [[nodiscard]] Size imageSize() const { return imageSize_; }
  [[nodiscard]] const Turn& turn() const { return turn_; }

  [[nodiscard]] bool fitInBounds() const { return fitInBounds_; }
  /// While `automaticallyAdjusts` is set, each placement chooses `fitInBounds` itself.
  void setFitMode(bool automaticallyAdjusts, bool fitInBounds);
  void setNeedsUpdate() { needsUpdate_ = true; }

 private:
  Clock& clock_;
  Size viewportSize_;
  Size imageSize_;
  Turn turn_;
  bool automaticallyAdjustsFitMode_ = false;
  bool fitInBounds_ = false;
  bool needsUpdate_ = true;
};

}  // namespace QelUtilVideo::opengl
