#pragma once

#include "platform/linux/v4l2/VideoNode.h"

#include <linux/videodev2.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// One way in which a camera can stream.
struct CameraMode {
  std::uint32_t format = 0;  ///< V4L2's code
  std::uint32_t width = 0;   ///< pixels
  std::uint32_t height = 0;
  v4l2_fract interval{};  ///< seconds from frame to frame; 0/0: unknown

  /// Frames per second; 0: unknown.
  [[nodiscard]] double rate() const;
};

/// Of the modes whose format is known: the largest picture that fits into 1280 x 720, or the smallest one
/// where none does; of that size those whose rate is nearest to 30 frames per second, half a frame more or
/// less being equal; of these the format that makes the least work. None when no format is known.
[[nodiscard]] std::optional<CameraMode> chooseMode(const std::vector<CameraMode>& modes);

/// Of sizes in steps the largest that fits into 1280 x 720, or the smallest.
[[nodiscard]] v4l2_frmsize_discrete chooseSize(const v4l2_frmsize_stepwise& range);
/// Of intervals in steps the one nearest to 1/30 second.
[[nodiscard]] v4l2_fract chooseInterval(const v4l2_frmival_stepwise& range);

/// All that the driver tells, of unknown formats too, at most some thousands. `type`:
/// V4L2_BUF_TYPE_VIDEO_CAPTURE, or the one of several planes.
[[nodiscard]] std::vector<CameraMode> listModes(const VideoNode& node, std::uint32_t type);

}  // namespace QelUtilVideo
