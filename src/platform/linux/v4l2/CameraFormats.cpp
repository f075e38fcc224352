#include "platform/linux/v4l2/CameraFormats.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <array>

namespace QelUtilVideo {

namespace {

using Pixels = CameraPixels;

enum Rank { asItIs, swapped, packed, planar, compressed, colours, withoutColour };

constexpr std::array kFormats{
    CameraFormat{V4L2_PIX_FMT_NV12, Pixels::nv12, asItIs},
    CameraFormat{V4L2_PIX_FMT_NV12M, Pixels::nv12, asItIs, 2},
    CameraFormat{V4L2_PIX_FMT_NV21, Pixels::nv21, swapped},
    CameraFormat{V4L2_PIX_FMT_NV21M, Pixels::nv21, swapped, 2},
    CameraFormat{V4L2_PIX_FMT_YUYV, Pixels::yuyv, packed},
    CameraFormat{V4L2_PIX_FMT_UYVY, Pixels::uyvy, packed},
    CameraFormat{V4L2_PIX_FMT_YVYU, Pixels::yvyu, packed},
    CameraFormat{V4L2_PIX_FMT_VYUY, Pixels::vyuy, packed},
    CameraFormat{V4L2_PIX_FMT_YUV420, Pixels::yuv420, planar},
    CameraFormat{V4L2_PIX_FMT_YUV420M, Pixels::yuv420, planar, 3},
    CameraFormat{V4L2_PIX_FMT_YVU420, Pixels::yvu420, planar},
    CameraFormat{V4L2_PIX_FMT_YVU420M, Pixels::yvu420, planar, 3},
    CameraFormat{V4L2_PIX_FMT_YUV422P, Pixels::yuv422, planar},
    CameraFormat{V4L2_PIX_FMT_YUV422M, Pixels::yuv422, planar, 3},
    CameraFormat{V4L2_PIX_FMT_MJPEG, Pixels::motionJPEG, compressed},
    CameraFormat{V4L2_PIX_FMT_JPEG, Pixels::motionJPEG, compressed},
    CameraFormat{V4L2_PIX_FMT_XBGR32, Pixels::bgrx, colours},
    CameraFormat{V4L2_PIX_FMT_ABGR32, Pixels::bgrx, colours},
    CameraFormat{V4L2_PIX_FMT_BGR32, Pixels::bgrx, colours},
    CameraFormat{V4L2_PIX_FMT_RGBX32, Pixels::rgbx, colours},
    CameraFormat{V4L2_PIX_FMT_XRGB32, Pixels::xrgb, colours},
    CameraFormat{V4L2_PIX_FMT_RGB32, Pixels::xrgb, colours},
    CameraFormat{V4L2_PIX_FMT_BGR24, Pixels::bgr24, colours},
    CameraFormat{V4L2_PIX_FMT_RGB24, Pixels::rgb24, colours},
    CameraFormat{V4L2_PIX_FMT_GREY, Pixels::grey, withoutColour},
};

}  // namespace

std::optional<CameraFormat> cameraFormat(std::uint32_t code) {
  const auto* const found = std::ranges::find(kFormats, code, &CameraFormat::code);
  if (found == kFormats.end()) return std::nullopt;
  return *found;
}

std::string cameraFormatName(std::uint32_t code) {
  std::string name;
  for (int shift = 0; shift < 32; shift += 8) {
    const auto character = static_cast<char>(code >> shift & 0x7f);  // the top bit says "big-endian"
    name += character >= ' ' && character < 0x7f ? character : '?';
  }
  name.erase(name.find_last_not_of(' ') + 1);
  return name;
}

}  // namespace QelUtilVideo
