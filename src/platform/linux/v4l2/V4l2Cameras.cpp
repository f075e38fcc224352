#include "platform/linux/v4l2/V4l2Cameras.h"

#include "platform/linux/v4l2/CameraErrors.h"
#include "platform/linux/v4l2/FolderNodes.h"
#include "platform/linux/v4l2/UdevNodes.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace QelUtilVideo {

V4l2Cameras::V4l2Cameras(EventLoop& loop, NotificationCenter& center, CameraInput::MakeMaker makeMaker,
                         const std::string& folder)
    : center_(center), makeMaker_(std::move(makeMaker)) {
  const NodeEvents events{[this](const CameraNode& node) { add(node); },
                          [this](const std::string& path) { remove(path); }};
  // First those who know most of a node.
  sources_.push_back(watchUdevNodes(loop, events));
  if (isUdevRunning()) {
    // A new node is nobody's to open before the device manager has told of it.
    for (const CameraNode& node : listFolderNodes(folder)) add(node);
  } else {
    sources_.push_back(watchFolderNodes(loop, folder, events));
  }
  isComplete_ = true;
}

std::vector<std::shared_ptr<AVCaptureDevice>> V4l2Cameras::cameras() {
  return cameras_.with([](const Cameras& cameras) {
    return std::vector<std::shared_ptr<AVCaptureDevice>>(cameras.begin(), cameras.end());
  });
}

Result<std::shared_ptr<AVCaptureInput>> V4l2Cameras::makeInput(const AVCaptureDevice& camera) {
  const auto known = cameras_.with([&](const Cameras& cameras) {
    const auto found = std::ranges::find(
        cameras, &camera, [](const auto& each) -> const AVCaptureDevice* { return each.get(); });
    return found == cameras.end() ? nullptr : *found;
  });
  if (!known || !known->isConnected()) return cameraError("", ENODEV);
  if (::access(known->path().c_str(), R_OK | W_OK) != 0) return cameraError(known->path(), errno);
  return std::shared_ptr<AVCaptureInput>(std::make_shared<CameraInput>(known, turns_, makeMaker_));
}

bool V4l2Cameras::isListed(const std::string& path) const {
  return cameras_.with([&](const Cameras& cameras) {
    return std::ranges::find(cameras, path, &V4l2Camera::path) != cameras.end();
  });
}

void V4l2Cameras::add(const CameraNode& node) {
  if (isListed(node.path)) return;
  auto identity = identifyCamera(node);
  if (!identity) return;
  const auto camera = cameras_.with([&](Cameras& cameras) {
    // Told of by two at once.
    if (std::ranges::find(cameras, node.path, &V4l2Camera::path) != cameras.end())
      return std::shared_ptr<V4l2Camera>();
    const auto isTaken = [&](const std::string& id) {
      return std::ranges::any_of(cameras, [&](const auto& other) { return other->uniqueID() == id; });
    };
    // Nothing tells the two apart but that there are two.
    const std::string own = identity->uniqueID;
    for (int i = 2; isTaken(identity->uniqueID); ++i) identity->uniqueID = own + "+" + std::to_string(i);
    cameras.push_back(std::make_shared<V4l2Camera>(node.path, *identity));
    return cameras.back();
  });
  if (!camera) return;
  if (isComplete_) center_.postNotificationName(AVCaptureDeviceWasConnectedNotification, camera);
  // It may have gone while it was asked who it is.
  if (!camera->isConnected()) remove(node.path);
}

void V4l2Cameras::remove(const std::string& path) {
  const auto camera = cameras_.with([&](Cameras& cameras) {
    std::shared_ptr<V4l2Camera> removed;
    const auto found = std::ranges::find(cameras, path, &V4l2Camera::path);
    if (found == cameras.end()) return removed;
    removed = *found;
    cameras.erase(found);
    return removed;
  });
  if (!camera) return;
  camera->disconnect();
  if (isComplete_) center_.postNotificationName(AVCaptureDeviceWasDisconnectedNotification, camera);
}

}  // namespace QelUtilVideo
