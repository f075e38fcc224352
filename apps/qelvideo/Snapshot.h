#pragma once

#include <QelUtilVideo/platform/CGImage.h>

#include <string>

#include "SourceList.h"

namespace qelvideo {

class HostLoop;

/// What the source shows now; null when it gives no picture.
[[nodiscard]] QelUtilVideo::CGImageRef pictureOf(const QelUtilVideo::Capturable& source);
/// The same, but throws `Failure` when it gives no picture.
[[nodiscard]] QelUtilVideo::CGImageRef takeSnapshot(const QelUtilVideo::Capturable& source);

/// Where there are windows among the sources, lets their programs draw what was hidden behind others: they
/// are asked for it only since the windows were listed. Takes a moment.
void letWindowsRepaint(HostLoop& loop, const SourceRefs& sources);

/// Writes the picture to a PNG file. Throws `Failure`; an older file of the name then stays as it was.
void savePicture(const QelUtilVideo::CGImage& picture, const std::string& path);

}  // namespace qelvideo
