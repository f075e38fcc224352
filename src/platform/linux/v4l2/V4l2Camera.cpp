#include "platform/linux/v4l2/V4l2Camera.h"

#include <unistd.h>

#include <utility>

namespace QelUtilVideo {

V4l2Camera::V4l2Camera(std::string path, CameraIdentity identity)
    : path_(std::move(path)), identity_(std::move(identity)) {}

bool V4l2Camera::isConnected() const { return !isGone_ && ::access(path_.c_str(), F_OK) == 0; }

}  // namespace QelUtilVideo
