#include "platform/linux/v4l2/CameraFrames.h"

#include "platform/linux/v4l2/ScriptedNode.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <thread>

namespace QelUtilVideo {
namespace {

/// A driver of one mode whose buffers are filled as soon as they are queued.
class CameraBuffersOfADriver : public testing::Test {
 protected:
  static constexpr std::uint32_t kWidth = 6, kHeight = 4, kStride = 8;

  /// `pieces`: 0 for the plain interface, else so many planes in pieces of memory of their own.
  void start(std::uint32_t format, std::uint32_t pieces = 0, std::uint32_t count = 4) {
    pieces_ = pieces;
    const std::uint32_t type = pieces ? V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE;
    node_->on<v4l2_capability>(VIDIOC_QUERYCAP, [=](v4l2_capability& can) {
      can.capabilities = V4L2_CAP_DEVICE_CAPS | V4L2_CAP_VIDEO_M2M;  // of the whole device
      can.device_caps =
          V4L2_CAP_STREAMING | (pieces ? V4L2_CAP_VIDEO_CAPTURE_MPLANE : V4L2_CAP_VIDEO_CAPTURE);
      return 0;
    });
    node_->on<v4l2_fmtdesc>(VIDIOC_ENUM_FMT, [=](v4l2_fmtdesc& description) {
      description.pixelformat = format;
      return description.index == 0 && description.type == type ? 0 : EINVAL;
    });
    const std::function<int(v4l2_format&)> setFormat = [=](v4l2_format& answer) {
      if (pieces) {
        answer.fmt.pix_mp = {};
        answer.fmt.pix_mp.width = kWidth;
        answer.fmt.pix_mp.height = kHeight;
        answer.fmt.pix_mp.pixelformat = format;
        answer.fmt.pix_mp.num_planes = static_cast<__u8>(pieces);
        for (auto& plane : answer.fmt.pix_mp.plane_fmt) plane.bytesperline = kStride;
      } else {
        answer.fmt.pix = {};
        answer.fmt.pix.width = kWidth;
        answer.fmt.pix.height = kHeight;
        answer.fmt.pix.pixelformat = format;
        answer.fmt.pix.bytesperline = kStride;
      }
      return 0;
    };
    node_->on<v4l2_format>(VIDIOC_TRY_FMT, setFormat);
    node_->on<v4l2_format>(VIDIOC_S_FMT, setFormat);
    node_->on<v4l2_requestbuffers>(VIDIOC_REQBUFS, [=](v4l2_requestbuffers& request) {
      request.count = std::min(request.count, count);
      return 0;
    });
    node_->on<v4l2_buffer>(VIDIOC_QUERYBUF, [this](v4l2_buffer& buffer) {
      fill(buffer);
      return 0;
    });
    node_->on<v4l2_buffer>(VIDIOC_QBUF, [this](v4l2_buffer& buffer) {
      queued_.with([&](auto& queued) { queued.push_back(buffer.index); });
      return 0;
    });
    node_->on<v4l2_buffer>(VIDIOC_DQBUF, [this](v4l2_buffer& buffer) {
      return queued_.with([&](auto& queued) {
        if (queued.empty()) return EAGAIN;
        buffer.index = queued.front();
        queued.pop_front();
        fill(buffer);
        return 0;
      });
    });
    node_->on<int>(VIDIOC_STREAMON, [](int&) { return 0; });
    node_->on<int>(VIDIOC_STREAMOFF, [](int&) { return 0; });

    auto agreed = agreeOnFormat(*node_, "/dev/video0");
    ASSERT_TRUE(agreed.hasValue()) << agreed.error().description();
    format_ = agreed.value();
    ASSERT_EQ(CameraBuffers::make(node_, format_.type, 6, buffers_), 0);
    ASSERT_EQ(buffers_->begin(), 0);
    frames_.emplace(format_, buffers_, [this](const CameraPicture& picture) {
      converted_.push_back(picture);
      CVPixelBufferRef frame;
      (void)CVPixelBufferCreate(kWidth, kHeight, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, frame);
      return frame;
    });
  }
  [[nodiscard]] CVPixelBufferRef next() {
    const auto taken = buffers_->take();
    return taken.buffer ? frames_->make(*taken.buffer) : nullptr;
  }
  [[nodiscard]] std::size_t queued() const { return queued_.copy().size(); }
  [[nodiscard]] bool isInDriver(const CVPixelBufferRef& frame) const {
    return std::ranges::any_of(node_->mapped, [&](const auto& entry) {
      const auto* first = entry.second->content.data();
      const auto* plane = frame->planes()[0].baseAddress;
      return plane >= first && plane < first + entry.second->content.size();
    });
  }

  std::shared_ptr<ScriptedNode> node_ = std::make_shared<ScriptedNode>();
  Synchronised<std::deque<std::uint32_t>> queued_;
  std::shared_ptr<CameraBuffers> buffers_;
  StreamFormat format_;
  std::optional<CameraFrames> frames_;
  std::vector<CameraPicture> converted_;
  std::uint32_t bytesUsed_ = kStride * kHeight * 3 / 2;
  std::uint32_t flags_ = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;

 private:
  void fill(v4l2_buffer& buffer) const {
    constexpr std::uint32_t length = kStride * kHeight * 3 / 2;
    buffer.flags = flags_;
    buffer.timestamp = {7, 250'000};
    if (pieces_ == 0) {
      buffer.length = length;
      buffer.m.offset = buffer.index * 4096;
      buffer.bytesused = bytesUsed_;
      return;
    }
    buffer.length = pieces_;
    for (std::uint32_t i = 0; i < pieces_; ++i) {
      buffer.m.planes[i].length = length;
      buffer.m.planes[i].m.mem_offset = (buffer.index * 4 + i) * 4096;
      buffer.m.planes[i].bytesused = bytesUsed_;
      buffer.m.planes[i].data_offset = 2;
    }
  }
  std::uint32_t pieces_ = 0;
};

TEST_F(CameraBuffersOfADriver, areLentWhileTheDriverHasEnoughAndCopiedThen) {
  start(V4L2_PIX_FMT_NV12);
  EXPECT_EQ(queued(), 4U);
  const auto first = next(), second = next();
  EXPECT_TRUE(isInDriver(first) && isInDriver(second));
  EXPECT_EQ(CVPixelBufferGetBytesPerRowOfPlane(*first, 1), kStride);
  EXPECT_EQ(first->planes()[1].baseAddress - first->planes()[0].baseAddress, kStride * kHeight);
  EXPECT_EQ(converted_.size(), 0U);
  const auto third = next();
  EXPECT_FALSE(isInDriver(third));
  EXPECT_EQ(converted_.size(), 1U);
  EXPECT_EQ(queued(), 2U) << "the copied one is the driver's again at once";
}

TEST_F(CameraBuffersOfADriver, comeBackWhenTheFrameGoesOnWhateverThreadAndNotAfterTheEnd) {
  start(V4L2_PIX_FMT_NV12);
  auto first = next(), second = next();
  std::thread([frame = std::move(first)]() mutable { frame.reset(); }).join();
  EXPECT_EQ(queued(), 3U);
  buffers_->end();
  frames_.reset();
  buffers_.reset();
  const std::size_t calls = node_->calls.size();
  EXPECT_EQ(node_->calls.back(), static_cast<unsigned long>(VIDIOC_REQBUFS));
  std::ranges::fill_n(second->planes()[1].baseAddress, kStride, std::byte{128});  // still there
  second.reset();
  EXPECT_EQ(node_->calls.size(), calls) << "the node may be somebody else's by now";
}

TEST_F(CameraBuffersOfADriver, mayLieInPiecesOfMemory) {
  start(V4L2_PIX_FMT_NV12M, 2);
  const auto frame = next();
  ASSERT_TRUE(frame);
  EXPECT_EQ(converted_.size(), 0U);
  EXPECT_EQ(frame->planes()[0].baseAddress, node_->mapped[0]->bytes() + 2);
  EXPECT_EQ(frame->planes()[1].baseAddress, node_->mapped[4096]->bytes() + 2);
}

TEST_F(CameraBuffersOfADriver, ofOtherFormatsAreConvertedWithEachPlaneInItsPlace) {
  start(V4L2_PIX_FMT_YVU420);
  EXPECT_TRUE(next());
  ASSERT_EQ(converted_.size(), 1U);
  const auto& planes = converted_[0].planes;
  EXPECT_EQ(converted_[0].pixels, CameraPixels::yvu420);
  EXPECT_EQ(planes[1].bytes - planes[0].bytes, kStride * kHeight);
  EXPECT_EQ(planes[2].bytes - planes[1].bytes, kStride / 2 * kHeight / 2);
  EXPECT_EQ(planes[2].size, kStride / 2 * kHeight / 2);
  EXPECT_EQ(planes[2].bytesPerRow, kStride / 2);
}

TEST_F(CameraBuffersOfADriver, thatAreShortOrDamagedAreNotLent) {
  start(V4L2_PIX_FMT_NV12);
  bytesUsed_ = kStride * kHeight + 3;
  EXPECT_TRUE(next()) << "whoever converts finds out";
  EXPECT_EQ(converted_.at(0).planes[1].size, 3U);
  bytesUsed_ = 1'000'000;
  EXPECT_TRUE(isInDriver(next())) << "there is no more than the memory";
  flags_ |= V4L2_BUF_FLAG_ERROR;
  EXPECT_FALSE(next());
  EXPECT_EQ(converted_.size(), 1U);
  EXPECT_EQ(queued(), 4U);
}

}  // namespace
}  // namespace QelUtilVideo
