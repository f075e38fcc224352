#pragma once

#include "platform/linux/v4l2/CameraNode.h"

#include <functional>
#include <string>

namespace QelUtilVideo {

/// What is told of video nodes. Nodes that are there already are told by the thread that begins to watch,
/// later ones by the main thread. One may be told of twice.
struct NodeEvents {
  std::function<void(const CameraNode& node)> added;
  std::function<void(const std::string& path)> removed;
};

/// Tells of video nodes that come and go while it lives.
class NodeSource {
 public:
  virtual ~NodeSource() = default;
};

}  // namespace QelUtilVideo
