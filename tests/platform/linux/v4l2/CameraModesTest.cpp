#include "platform/linux/v4l2/CameraModes.h"

#include "platform/linux/v4l2/CameraFormats.h"
#include "platform/linux/v4l2/ScriptedNode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace QelUtilVideo {
namespace {

struct Offer {
  std::uint32_t format;
  std::uint32_t width;
  std::uint32_t height;
  std::vector<std::uint32_t> rates;
};

/// "MJPG 1280x720 30", or "" for none.
std::string chosen(const std::vector<Offer>& offers) {
  std::vector<CameraMode> modes;
  for (const Offer& offer : offers) {
    for (const std::uint32_t rate : offer.rates) {
      modes.push_back({offer.format, offer.width, offer.height, {rate ? 1U : 0U, rate}});
    }
  }
  const auto mode = chooseMode(modes);
  if (!mode) return "";
  return cameraFormatName(mode->format) + " " + std::to_string(mode->width) + "x" +
         std::to_string(mode->height) + " " + std::to_string(std::lround(mode->rate()));
}

constexpr auto kYuyv = V4L2_PIX_FMT_YUYV, kMjpg = V4L2_PIX_FMT_MJPEG, kH264 = V4L2_PIX_FMT_H264,
               kNv12 = V4L2_PIX_FMT_NV12, kGrey = V4L2_PIX_FMT_GREY, kRgb = V4L2_PIX_FMT_RGB24;

TEST(CameraModes, theLargestUpTo720LinesAtTheRateNearest30InTheFormatOfLeastWork) {
  // A webcam of 1080 lines on USB 2, which is too slow for raw pictures of that size.
  EXPECT_EQ(chosen({{kYuyv, 640, 480, {30, 15, 5}},
                    {kYuyv, 1280, 720, {10, 5}},
                    {kYuyv, 1920, 1080, {5}},
                    {kMjpg, 640, 480, {30, 24, 15}},
                    {kMjpg, 1280, 720, {60, 30, 15}},
                    {kMjpg, 1920, 1080, {30}},
                    {kH264, 1280, 720, {30}}}),
            "MJPG 1280x720 30");
  // One on USB 3, which has all of them.
  EXPECT_EQ(chosen({{kMjpg, 1280, 720, {60, 30}},
                    {kYuyv, 1280, 720, {60, 30}},
                    {kNv12, 1280, 720, {30, 60}},
                    {kNv12, 1920, 1080, {30}}}),
            "NV12 1280x720 30");
  // The infrared half of a laptop's, with its one mode.
  EXPECT_EQ(chosen({{kGrey, 340, 340, {30}}}), "GREY 340x340 30");
  // An old one.
  EXPECT_EQ(chosen({{kYuyv, 352, 288, {25, 30}}, {kYuyv, 640, 480, {15}}, {kYuyv, 160, 120, {30}}}),
            "YUYV 640x480 15");
  // A grabber with sizes above all of ours.
  EXPECT_EQ(chosen({{kRgb, 3840, 2160, {30}}, {kYuyv, 1920, 1080, {25, 60}}, {kYuyv, 2048, 1080, {30}}}),
            "YUYV 1920x1080 25");
  // One that says no rate, and one that says no size.
  EXPECT_EQ(chosen({{kYuyv, 640, 480, {0}}, {kMjpg, 640, 480, {5}}, {kYuyv, 0, 0, {30}}}), "MJPG 640x480 5");
  EXPECT_EQ(chosen({{kYuyv, 640, 480, {0}}}), "YUYV 640x480 0");
  // One with nothing for us.
  EXPECT_EQ(chosen({{kH264, 1280, 720, {30}}}), "");
  EXPECT_EQ(chosen({}), "");
}

TEST(CameraModes, aDriverThatNeverEndsItsListsIsCutShort) {
  ScriptedNode node;
  node.on<v4l2_fmtdesc>(VIDIOC_ENUM_FMT, [](v4l2_fmtdesc& description) {
    description.pixelformat = V4L2_PIX_FMT_YUYV;
    return 0;
  });
  node.on<v4l2_frmsizeenum>(VIDIOC_ENUM_FRAMESIZES, [](v4l2_frmsizeenum& size) {
    size.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    size.discrete = {640, 480};
    return 0;
  });
  node.on<v4l2_frmivalenum>(VIDIOC_ENUM_FRAMEINTERVALS, [](v4l2_frmivalenum& interval) {
    interval.type = V4L2_FRMIVAL_TYPE_DISCRETE;
    interval.discrete = {1, 30};
    return 0;
  });
  const auto modes = listModes(node, V4L2_BUF_TYPE_VIDEO_CAPTURE);
  EXPECT_LE(modes.size(), 5000U);
  EXPECT_EQ(chooseMode(modes)->width, 640U);
}

TEST(CameraModes, rangesGiveTheirBestStep) {
  const auto size = [](std::uint32_t low, std::uint32_t high, std::uint32_t step) {
    const auto chosen = chooseSize({low, high, step, low, high, step});
    return std::pair(chosen.width, chosen.height);
  };
  EXPECT_EQ(size(16, 4096, 16), std::pair(1280U, 720U));
  EXPECT_EQ(size(48, 4096, 48), std::pair(1248U, 720U));
  EXPECT_EQ(size(16, 640, 0), std::pair(640U, 640U)) << "a range without steps";
  EXPECT_EQ(size(2000, 4096, 2), std::pair(2000U, 2000U));
  EXPECT_EQ(size(640, 16, 2), std::pair(640U, 640U)) << "a range that is none";

  const auto rate = [](v4l2_fract low, v4l2_fract high) {
    return CameraMode{0, 1, 1, chooseInterval({low, high, {}})}.rate();
  };
  EXPECT_EQ(rate({1, 60}, {1, 1}), 30);
  EXPECT_EQ(rate({1, 25}, {1, 1}), 25);
  EXPECT_EQ(rate({1, 120}, {1, 50}), 50);
}

}  // namespace
}  // namespace QelUtilVideo
