#pragma once

#include "platform/Result.h"
#include "platform/linux/core/CameraPicture.h"
#include "platform/linux/v4l2/CameraBuffers.h"
#include "platform/linux/v4l2/CameraFormats.h"
#include "platform/linux/v4l2/CameraModes.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace QelUtilVideo {

/// What a camera and we agreed on.
struct StreamFormat {
  CameraFormat format;
  std::uint32_t type = 0;  ///< of V4L2's buffers
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::array<std::uint32_t, CameraBuffers::kMostPieces> bytesPerRow{};  ///< of each piece of memory
  bool isFullRange = false;

  /// The picture in a buffer. Its planes may be shorter than they should be.
  [[nodiscard]] CameraPicture picture(const CameraBuffers::Filled& buffer) const;
};

/// V4L2's buffer type of a node that captures and streams video; none of one that does not: metadata,
/// output and codec nodes.
[[nodiscard]] std::optional<std::uint32_t> captureType(const VideoNode& node);

/// Sets a node to its best mode, so far as it lets itself be set. `path` is for the text of the error.
[[nodiscard]] Result<StreamFormat> agreeOnFormat(const VideoNode& node, const std::string& path);

}  // namespace QelUtilVideo
