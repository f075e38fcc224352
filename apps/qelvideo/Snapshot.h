#pragma once

#include <QelUtilVideo/platform/CGImage.h>

#include <string>

namespace QelUtilVideo {
class Capturable;
}

namespace qelvideo {

/// What the source shows now. Throws `Failure` when it gives no picture.
[[nodiscard]] QelUtilVideo::CGImageRef takeSnapshot(const QelUtilVideo::Capturable& source);

/// Writes the picture to a PNG file. Throws `Failure`; an older file of the name then stays as it was.
void savePicture(const QelUtilVideo::CGImage& picture, const std::string& path);

}  // namespace qelvideo
