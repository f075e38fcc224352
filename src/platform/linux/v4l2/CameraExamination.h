#pragma once

#include <QelUtilVideo/platform/Diagnostics.h>

#include <string>
#include <vector>

namespace QelUtilVideo {

/// Says which cameras can be used, and of the others why not. Opens each video node; disturbs no stream.
[[nodiscard]] std::vector<Finding> examineCameras(const std::string& folder = "/dev");

}  // namespace QelUtilVideo
