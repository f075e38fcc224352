#pragma once

namespace QelUtilVideo {

class CGImage;

namespace windowlist {

/// Whether capture can work with such an image: RGB, 8 bits per component, 32 per pixel, at least 2 × 2
/// pixels. Does not move the image's bytes. Any thread.
[[nodiscard]] bool isUsableImage(const CGImage& image);

}  // namespace windowlist
}  // namespace QelUtilVideo
