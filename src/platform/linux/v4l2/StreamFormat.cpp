#include "platform/linux/v4l2/StreamFormat.h"

#include "platform/linux/v4l2/CameraErrors.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>
#include <span>
#include <vector>

namespace QelUtilVideo {

namespace {

/// How the planes of one kind of pixels lie behind each other in one piece of memory.
struct PlaneShape {
  std::size_t strideDivisor;
  std::size_t rowDivisor;
};

std::span<const PlaneShape> shapesOf(CameraPixels pixels) {
  static constexpr std::array<PlaneShape, 1> one{{{1, 1}}};
  static constexpr std::array<PlaneShape, 2> biPlanar{{{1, 1}, {1, 2}}};
  static constexpr std::array<PlaneShape, 3> planar420{{{1, 1}, {2, 2}, {2, 2}}};
  static constexpr std::array<PlaneShape, 3> planar422{{{1, 1}, {2, 1}, {2, 1}}};
  switch (pixels) {
    case CameraPixels::nv12:
    case CameraPixels::nv21:
      return biPlanar;
    case CameraPixels::yuv420:
    case CameraPixels::yvu420:
      return planar420;
    case CameraPixels::yuv422:
      return planar422;
    default:
      return one;
  }
}

bool isFullRange(std::uint32_t quantization, std::uint32_t colorspace) {
  if (quantization != V4L2_QUANTIZATION_DEFAULT) return quantization == V4L2_QUANTIZATION_FULL_RANGE;
  return colorspace == V4L2_COLORSPACE_JPEG;
}

v4l2_format formatOf(const CameraMode& mode, std::uint32_t type) {
  v4l2_format format{};
  format.type = type;
  if (type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE) {
    format.fmt.pix_mp.pixelformat = mode.format;
    format.fmt.pix_mp.width = mode.width;
    format.fmt.pix_mp.height = mode.height;
    format.fmt.pix_mp.field = V4L2_FIELD_ANY;
  } else {
    format.fmt.pix.pixelformat = mode.format;
    format.fmt.pix.width = mode.width;
    format.fmt.pix.height = mode.height;
    format.fmt.pix.field = V4L2_FIELD_ANY;
  }
  return format;
}

/// What the driver made of it; none when that is no format that we know.
std::optional<StreamFormat> agreed(const v4l2_format& answer) {
  StreamFormat stream;
  stream.type = answer.type;
  std::uint32_t code = 0;
  if (answer.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE) {
    const v4l2_pix_format_mplane& format = answer.fmt.pix_mp;
    code = format.pixelformat;
    stream.width = format.width;
    stream.height = format.height;
    const auto pieces = std::min<std::size_t>(format.num_planes, stream.bytesPerRow.size());
    for (std::size_t i = 0; i < pieces; ++i) stream.bytesPerRow[i] = format.plane_fmt[i].bytesperline;
    stream.isFullRange = isFullRange(format.quantization, format.colorspace);
  } else {
    const v4l2_pix_format& format = answer.fmt.pix;
    code = format.pixelformat;
    stream.width = format.width;
    stream.height = format.height;
    stream.bytesPerRow[0] = format.bytesperline;
    stream.isFullRange = isFullRange(format.quantization, format.colorspace);
  }
  const auto format = cameraFormat(code);
  if (!format) return std::nullopt;
  stream.format = *format;
  return stream;
}

/// As near to the mode's rate as the driver allows; one that has no say streams as it likes.
void setInterval(const VideoNode& node, std::uint32_t type, const v4l2_fract& interval) {
  v4l2_streamparm parameters{};
  parameters.type = type;
  if (node.control(VIDIOC_G_PARM, &parameters) != 0) return;
  if (!(parameters.parm.capture.capability & V4L2_CAP_TIMEPERFRAME)) return;
  parameters.parm.capture.timeperframe = interval.denominator ? interval : v4l2_fract{1, 30};
  (void)node.control(VIDIOC_S_PARM, &parameters);
}

}  // namespace

CameraPicture StreamFormat::picture(const CameraBuffers::Filled& buffer) const {
  CameraPicture picture{format.pixels, width, height, isFullRange, {}};
  const auto shapes = shapesOf(format.pixels);
  if (format.memoryCount > 1) {
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      const auto& piece = buffer.pieces[i];
      if (!piece.memory) continue;
      picture.planes[i] = {piece.memory->bytes() + piece.start, piece.size, bytesPerRow[i]};
    }
    return picture;
  }
  const auto& piece = buffer.pieces[0];
  if (!piece.memory) return picture;
  std::size_t start = 0;
  for (std::size_t i = 0; i < shapes.size() && start <= piece.size; ++i) {
    const std::size_t stride = bytesPerRow[0] / shapes[i].strideDivisor;
    picture.planes[i] = {piece.memory->bytes() + piece.start + start, piece.size - start, stride};
    start += stride * ((height + shapes[i].rowDivisor - 1) / shapes[i].rowDivisor);
  }
  return picture;
}

std::optional<std::uint32_t> captureType(const VideoNode& node) {
  v4l2_capability capability{};
  if (node.control(VIDIOC_QUERYCAP, &capability) != 0) return std::nullopt;
  const std::uint32_t can =
      capability.capabilities & V4L2_CAP_DEVICE_CAPS ? capability.device_caps : capability.capabilities;
  constexpr std::uint32_t otherKinds =
      V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_VIDEO_OUTPUT_MPLANE | V4L2_CAP_VIDEO_M2M | V4L2_CAP_VIDEO_M2M_MPLANE;
  if (!(can & V4L2_CAP_STREAMING) || (can & otherKinds)) return std::nullopt;
  if (can & V4L2_CAP_VIDEO_CAPTURE) return V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (can & V4L2_CAP_VIDEO_CAPTURE_MPLANE) return V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
  return std::nullopt;
}

Result<StreamFormat> agreeOnFormat(const VideoNode& node, const std::string& path) {
  const auto type = captureType(node);
  if (!type) return cameraError(path, ENODEV);
  const std::vector<CameraMode> modes = listModes(node, *type);
  const auto mode = chooseMode(modes);
  std::vector<std::uint32_t> codes;
  for (const CameraMode& each : modes) codes.push_back(each.format);
  // Pulled out meanwhile, it has none either.
  if (!mode && !captureType(node)) return cameraError(path, ENODEV);
  if (!mode) return noCameraFormat(codes);
  v4l2_format format = formatOf(*mode, *type);
  if (const int error = node.control(VIDIOC_S_FMT, &format)) return cameraError(path, error);
  const auto stream = agreed(format);
  if (!stream) return noCameraFormat(codes);
  setInterval(node, *type, mode->interval);
  return *stream;
}

}  // namespace QelUtilVideo
