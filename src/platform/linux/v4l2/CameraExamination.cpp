#include "platform/linux/v4l2/CameraExamination.h"

#include "platform/linux/v4l2/CameraErrors.h"
#include "platform/linux/v4l2/CameraFormats.h"
#include "platform/linux/v4l2/CameraModes.h"
#include "platform/linux/v4l2/CameraNode.h"
#include "platform/linux/v4l2/FolderNodes.h"
#include "platform/linux/v4l2/StreamFormat.h"
#include "platform/linux/v4l2/UdevNodes.h"
#include "platform/linux/v4l2/VideoNode.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

namespace QelUtilVideo {

namespace {

using State = Finding::State;

Finding finding(std::string subject, State state, std::string detail, std::string remedy = {}) {
  return {Finding::Area::cameras, std::move(subject), state, std::move(detail), std::move(remedy)};
}

/// Texts of errors say what is wrong, a colon, and what to do.
Finding finding(std::string subject, State state, const std::string& path, const NSError& error) {
  const std::string& text = error.localizedDescription;
  const auto colon = text.find(": ");
  if (colon == std::string::npos) return finding(std::move(subject), state, path + ": " + text);
  std::string remedy = text.substr(colon + 2) + ".";
  remedy.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(remedy.front())));
  return finding(std::move(subject), state, path + ": " + text.substr(0, colon), std::move(remedy));
}

std::vector<CameraNode> listNodes(const std::string& folder) {
  std::vector<CameraNode> nodes = listUdevNodes();
  for (CameraNode& node : listFolderNodes(folder)) {
    if (std::ranges::find(nodes, node.path, &CameraNode::path) == nodes.end())
      nodes.push_back(std::move(node));
  }
  return nodes;
}

/// Sets the format that is set: a driver that somebody streams from refuses even that.
bool isBusy(const VideoNode& node, std::uint32_t type) {
  v4l2_format format{};
  format.type = type;
  return node.control(VIDIOC_G_FMT, &format) == 0 && node.control(VIDIOC_S_FMT, &format) == EBUSY;
}

std::string describe(const std::string& path, const CameraMode& mode) {
  std::string text = path + ", " + std::to_string(mode.width) + "x" + std::to_string(mode.height);
  if (mode.rate() > 0) text += " at " + std::to_string(std::lround(mode.rate())) + " per second";
  return text + ", " + cameraFormatName(mode.format);
}

/// None for a node that is no camera's.
std::optional<Finding> examine(const CameraNode& node) {
  if (node.canCapture == false) return std::nullopt;
  const OpenedNode opened = openVideoNode(node.path);
  if (!opened.node) {
    const std::string& name = node.name.empty() ? node.path : node.name;
    return finding("Camera " + name, State::missing, node.path, cameraError(node.path, opened.error));
  }
  const auto identity = identifyCamera(node);
  const auto type = captureType(*opened.node);
  if (!identity || !type) return std::nullopt;
  const std::string subject = "Camera " + identity->name;
  const std::vector<CameraMode> modes = listModes(*opened.node, *type);
  const auto mode = chooseMode(modes);
  if (!mode) {
    std::vector<std::uint32_t> formats;
    for (const CameraMode& each : modes) formats.push_back(each.format);
    return finding(subject, State::missing, node.path, noCameraFormat(formats));
  }
  if (isBusy(*opened.node, *type))
    return finding(subject, State::limited, node.path, cameraError(node.path, EBUSY));
  return finding(subject, State::ok, describe(node.path, *mode));
}

}  // namespace

std::vector<Finding> examineCameras(const std::string& folder) {
  constexpr const char* subject = "Cameras";
  const std::vector<CameraNode> nodes = listNodes(folder);
  std::vector<Finding> findings;
  for (const CameraNode& node : nodes) {
    if (auto found = examine(node)) findings.push_back(std::move(*found));
  }
  if (nodes.empty()) {
    findings.push_back(
        finding(subject, State::missing, "there is no video node",
                "Plug a camera in; a container or a virtual machine has to be given its node, such "
                "as /dev/video0."));
  } else if (findings.empty()) {
    findings.push_back(finding(subject, State::missing, "there are video nodes, but none that captures",
                               "Plug a camera in."));
  }
  return findings;
}

}  // namespace QelUtilVideo
