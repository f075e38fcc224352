#include "platform/linux/v4l2/CameraModes.h"

#include "platform/linux/v4l2/CameraFormats.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace QelUtilVideo {

namespace {

constexpr std::uint32_t kWidth = 1280, kHeight = 720;
constexpr double kRate = 30;
/// More than any driver has; one that never ends would hold us for ever.
constexpr std::uint32_t kMostFormats = 64, kMostSizes = 128, kMostIntervals = 64;
constexpr std::size_t kMostModes = 4096;

bool fits(std::uint32_t width, std::uint32_t height) { return width <= kWidth && height <= kHeight; }

/// The lower, the better.
auto badness(const CameraMode& mode, int rank) {
  const double area = double{1} * mode.width * mode.height;
  const bool isSmall = fits(mode.width, mode.height);
  const double rate = mode.rate();
  // An unknown rate comes after all known ones.
  const double off = rate > 0 ? std::floor(std::abs(rate - kRate) + 0.5) : std::numeric_limits<double>::max();
  return std::tuple(!isSmall, isSmall ? -area : area, off, rank);
}

std::uint32_t largestStep(std::uint32_t low, std::uint32_t high, std::uint32_t step, std::uint32_t limit) {
  const std::uint32_t most = std::min(high, limit);
  if (most <= low) return low;
  return low + (most - low) / std::max(step, 1U) * std::max(step, 1U);
}

double seconds(const v4l2_fract& fraction) {
  return fraction.denominator == 0 ? 0 : double{1} * fraction.numerator / fraction.denominator;
}

std::vector<v4l2_fract> listIntervals(const VideoNode& node, const CameraMode& mode) {
  std::vector<v4l2_fract> intervals;
  v4l2_frmivalenum interval{};
  interval.pixel_format = mode.format;
  interval.width = mode.width;
  interval.height = mode.height;
  for (; interval.index < kMostIntervals; ++interval.index) {
    if (node.control(VIDIOC_ENUM_FRAMEINTERVALS, &interval) != 0) break;
    if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) return {chooseInterval(interval.stepwise)};
    intervals.push_back(interval.discrete);
  }
  if (intervals.empty()) intervals.emplace_back();
  return intervals;
}

/// What the driver makes of the size that we want, when it does not list its sizes.
std::optional<v4l2_frmsize_discrete> triedSize(const VideoNode& node, std::uint32_t type,
                                               std::uint32_t format) {
  v4l2_format tried{};
  tried.type = type;
  const bool isMultiplanar = type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
  if (isMultiplanar) {
    tried.fmt.pix_mp.pixelformat = format;
    tried.fmt.pix_mp.width = kWidth;
    tried.fmt.pix_mp.height = kHeight;
  } else {
    tried.fmt.pix.pixelformat = format;
    tried.fmt.pix.width = kWidth;
    tried.fmt.pix.height = kHeight;
  }
  if (node.control(VIDIOC_TRY_FMT, &tried) != 0) return std::nullopt;
  if (isMultiplanar) return v4l2_frmsize_discrete{tried.fmt.pix_mp.width, tried.fmt.pix_mp.height};
  return v4l2_frmsize_discrete{tried.fmt.pix.width, tried.fmt.pix.height};
}

std::vector<v4l2_frmsize_discrete> listSizes(const VideoNode& node, std::uint32_t type,
                                             std::uint32_t format) {
  std::vector<v4l2_frmsize_discrete> sizes;
  v4l2_frmsizeenum size{};
  size.pixel_format = format;
  for (; size.index < kMostSizes; ++size.index) {
    if (node.control(VIDIOC_ENUM_FRAMESIZES, &size) != 0) break;
    if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) return {chooseSize(size.stepwise)};
    sizes.push_back(size.discrete);
  }
  if (sizes.empty()) {
    if (const auto tried = triedSize(node, type, format)) sizes.push_back(*tried);
  }
  return sizes;
}

}  // namespace

double CameraMode::rate() const {
  const double period = seconds(interval);
  return period > 0 ? 1 / period : 0;
}

std::optional<CameraMode> chooseMode(const std::vector<CameraMode>& modes) {
  const CameraMode* best = nullptr;
  int bestRank = 0;
  for (const CameraMode& mode : modes) {
    const auto format = cameraFormat(mode.format);
    if (!format || mode.width == 0 || mode.height == 0) continue;
    if (best && badness(mode, format->rank) >= badness(*best, bestRank)) continue;
    best = &mode;
    bestRank = format->rank;
  }
  if (!best) return std::nullopt;
  return *best;
}

v4l2_frmsize_discrete chooseSize(const v4l2_frmsize_stepwise& range) {
  return {largestStep(range.min_width, range.max_width, range.step_width, kWidth),
          largestStep(range.min_height, range.max_height, range.step_height, kHeight)};
}

v4l2_fract chooseInterval(const v4l2_frmival_stepwise& range) {
  constexpr v4l2_fract wanted{1, static_cast<std::uint32_t>(kRate)};
  if (seconds(wanted) <= seconds(range.min)) return range.min;
  if (seconds(wanted) >= seconds(range.max)) return range.max;
  return wanted;
}

std::vector<CameraMode> listModes(const VideoNode& node, std::uint32_t type) {
  std::vector<CameraMode> modes;
  v4l2_fmtdesc description{};
  description.type = type;
  for (; description.index < kMostFormats; ++description.index) {
    if (node.control(VIDIOC_ENUM_FMT, &description) != 0) break;
    for (const auto& size : listSizes(node, type, description.pixelformat)) {
      CameraMode mode{description.pixelformat, size.width, size.height, {}};
      for (const v4l2_fract& interval : listIntervals(node, mode)) {
        mode.interval = interval;
        modes.push_back(mode);
      }
      if (modes.size() >= kMostModes) return modes;
    }
  }
  return modes;
}

}  // namespace QelUtilVideo
