#include "platform/linux/v4l2/CameraNode.h"

#include "platform/linux/core/Utf8.h"
#include "platform/linux/v4l2/StreamFormat.h"
#include "platform/linux/v4l2/VideoNode.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace QelUtilVideo {

namespace {

template <std::size_t size>
std::string text(const __u8 (&field)[size]) {
  const char* first = reinterpret_cast<const char*>(field);
  return {first, ::strnlen(first, size)};
}

const std::string& firstOf(const std::string& a, const std::string& b) { return a.empty() ? b : a; }

/// The driver's own words where nobody else has any.
CameraIdentity identity(const CameraNode& node, const std::string& card, const std::string& bus) {
  std::string id = "V4L2." + firstOf(node.serial, card) + "." + firstOf(node.port, firstOf(bus, node.path));
  if (!node.index.empty()) id += "." + node.index;
  std::ranges::replace(id, ' ', '_');
  const std::string& name = firstOf(node.name, firstOf(card, node.path));
  return {soundUtf8(id), soundUtf8(name), card, bus};
}

}  // namespace

void sortByNumber(std::vector<CameraNode>& nodes) {
  std::ranges::sort(nodes, [](const CameraNode& a, const CameraNode& b) {
    return a.path.size() == b.path.size() ? a.path < b.path : a.path.size() < b.path.size();
  });
}

bool isStill(const CameraIdentity& camera, const VideoNode& node) {
  if (camera.card.empty() && camera.bus.empty()) return true;
  v4l2_capability capability{};
  return node.control(VIDIOC_QUERYCAP, &capability) == 0 && text(capability.card) == camera.card &&
         text(capability.bus_info) == camera.bus;
}

std::optional<CameraIdentity> identifyCamera(const CameraNode& node) {
  if (node.canCapture == false) return std::nullopt;
  const OpenedNode opened = openVideoNode(node.path);
  if (!opened.node) {
    // Whoever has no descriptor left, or finds it taken, may ask again.
    const int error = opened.error;
    const bool isGone = error == ENOENT || error == ENODEV || error == ENXIO || error == ENOTCONN;
    // Further nodes of a camera are mostly metadata's.
    const bool isLikely = node.canCapture.value_or(node.index.empty() || node.index == "0");
    if (!isGone && isLikely) return identity(node, "", "");
    return std::nullopt;
  }
  v4l2_capability capability{};
  if (!captureType(*opened.node) || opened.node->control(VIDIOC_QUERYCAP, &capability) != 0)
    return std::nullopt;
  return identity(node, text(capability.card), text(capability.bus_info));
}

}  // namespace QelUtilVideo
