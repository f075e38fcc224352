#pragma once

#include "platform/linux/core/EventLoop.h"
#include "platform/linux/v4l2/NodeSource.h"

#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// The entries of a folder that are called as video nodes are, "video" and a number, sorted by it. For
/// systems without a device manager.
[[nodiscard]] std::vector<CameraNode> listFolderNodes(const std::string& folder);

/// Tells of them as they come and go. The loop outlives the source.
[[nodiscard]] std::unique_ptr<NodeSource> watchFolderNodes(EventLoop& loop, std::string folder,
                                                           NodeEvents events);

}  // namespace QelUtilVideo
