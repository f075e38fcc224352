#pragma once

#include <QelUtilVideo/platform/NSError.h>

#include <cstdint>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// What a failed call on a node means, and what to do about it. `path`: the node's; `error`: the number.
[[nodiscard]] NSError cameraError(const std::string& path, int error);

/// The camera has no format that is known. `formats`: those that it has.
[[nodiscard]] NSError noCameraFormat(const std::vector<std::uint32_t>& formats);

/// It was there when the stream began.
[[nodiscard]] NSError cameraUnplugged();

/// Another stream of this process has it.
[[nodiscard]] NSError cameraTaken();

/// What keeps this process from opening the node, and the remedy; for people.
[[nodiscard]] std::string whyForbidden(const std::string& path);

/// Those who have the node open, as in "ffmpeg (process 1234)", or nothing when that cannot be seen. The
/// calling process is left out.
[[nodiscard]] std::string whoHolds(const std::string& path);

}  // namespace QelUtilVideo
