#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <memory>

namespace QelUtilVideo {

class Platform;

namespace windowlist {

/// Turns a captured image into a pixel buffer, with the mouse cursor drawn in when it is over `rect`, the
/// area that the image shows, in global display coordinates (points, origin top-left). Move the only
/// reference to the image in, and its bytes become the pixel buffer's without a copy; otherwise they are
/// copied once. Null when the image has no bytes or no pixel format can hold it. Any thread.
[[nodiscard]] CVPixelBufferRef makePixelBuffer(Platform& platform, std::shared_ptr<CGImage> image,
                                               const CGRect& rect);

}  // namespace windowlist
}  // namespace QelUtilVideo
