#include "render/opengl/Geometry.h"

#include <algorithm>
#include <iterator>

namespace QelUtilVideo::opengl {

void Geometry::updateOrientation(CGImagePropertyOrientation orientation, bool animated, Size image) {
  if (turn_.update(orientation, animated, clock_)) needsUpdate_ = true;
  if (image != imageSize_) {
    imageSize_ = image;
    needsUpdate_ = true;
  }
}

Geometry::Placement Geometry::resize(Size viewport) {
  const Size effectiveSize = turnedSize(imageSize_, turn_.rotation);
  if (viewport != viewportSize_) {
    viewportSize_ = viewport;
    needsUpdate_ = true;
  }
  if (!needsUpdate_) return {false, effectiveSize};
  if (automaticallyAdjustsFitMode_) fitInBounds_ = chooseFitInBounds(viewportSize_, effectiveSize);
  needsUpdate_ = false;
  return {true, effectiveSize};
}

std::array<float, 16> Geometry::makeVertices() const {
  const QuadExtents extents =
      quadExtents(aspectRatio(imageSize_), aspectRatio(viewportSize_), turn_.rotation, fitInBounds_);
  std::array<float, 16> floats{};
  auto next = floats.begin();
  for (const QuadVertex& vertex : quadVertices(extents)) {
    next = std::ranges::copy(std::array{vertex.x, vertex.y, vertex.u, vertex.v}, next).out;
  }
  return floats;
}

Transform Geometry::makeTransform() const { return quadTransform(turn_, aspectRatio(viewportSize_)); }

void Geometry::setFitMode(bool automaticallyAdjusts, bool fitInBounds) {
  automaticallyAdjustsFitMode_ = automaticallyAdjusts;
  fitInBounds_ = fitInBounds;
}

}  // namespace QelUtilVideo::opengl
