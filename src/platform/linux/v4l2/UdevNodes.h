#pragma once

#include "platform/linux/core/EventLoop.h"
#include "platform/linux/v4l2/NodeSource.h"

#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// Video nodes as the device manager of the system knows them, sorted by their numbers.
[[nodiscard]] std::vector<CameraNode> listUdevNodes();

/// Tells of them as they come and go. The loop outlives the source.
[[nodiscard]] std::unique_ptr<NodeSource> watchUdevNodes(EventLoop& loop, NodeEvents events);

/// Whether somebody tells when nodes come and go.
[[nodiscard]] bool isUdevRunning();

}  // namespace QelUtilVideo
