#include "render/metal/Geometry.h"

#include "log/Log.h"

#include <algorithm>
#include <array>
#include <span>

namespace QelUtilVideo::metal {

void Geometry::updateOrientation(CGImagePropertyOrientation orientation, bool animated, Size image) {
  if (turn_.update(orientation, animated, clock_)) needsUpdate_ = true;
  if (image != imageSize_) {
    imageSize_ = image;
    needsUpdate_ = true;
  }
}

Geometry::Size Geometry::resize(MTLDevice& device, Size drawable) {
  const Size effectiveSize = turnedSize(imageSize_, turn_.rotation);
  if (drawable != drawableSize_) {
    drawableSize_ = drawable;
    needsUpdate_ = true;
  }
  if (!needsUpdate_) return effectiveSize;
  if (automaticallyAdjustsFitMode_) fitInBounds_ = chooseFitInBounds(drawableSize_, effectiveSize);
  updateVertexBuffer(device);
  updateTransformBuffer(device);
  needsUpdate_ = false;
  return effectiveSize;
}

void Geometry::setAutomaticallyAdjustsFitMode(bool adjusts) {
  automaticallyAdjustsFitMode_ = adjusts;
  if (adjusts) needsUpdate_ = true;
}

void Geometry::setFitInBounds(bool fit) {
  fitInBounds_ = fit;
  needsUpdate_ = true;
}

void Geometry::updateVertexBuffer(MTLDevice& device) {
  const QuadExtents extents =
      quadExtents(aspectRatio(imageSize_), aspectRatio(drawableSize_), turn_.rotation, fitInBounds_);
  std::array<float, 20> floats{};
  auto next = floats.begin();
  for (const QuadVertex& vertex : quadVertices(extents)) {
    next = std::ranges::copy(std::array{vertex.x, vertex.y, 0.0F, vertex.u, vertex.v}, next).out;
  }
  vertexBuffer_ = device.newBufferWithBytes(std::as_bytes(std::span(floats)));
  if (!vertexBuffer_) fatal(logName_ + " creating vertex buffer failed");
}

void Geometry::updateTransformBuffer(MTLDevice& device) {
  const Transform transform = quadTransform(turn_, aspectRatio(drawableSize_));
  transformBuffer_ = device.newBufferWithBytes(std::as_bytes(std::span(transform)));
  if (!transformBuffer_) fatal(logName_ + " creating transform buffer failed");
}

}  // namespace QelUtilVideo::metal
