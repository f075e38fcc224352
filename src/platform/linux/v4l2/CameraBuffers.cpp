#include "platform/linux/v4l2/CameraBuffers.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace QelUtilVideo {

/// A `v4l2_buffer` together with the planes that it points to, where the type has them.
class CameraBuffers::Request {
 public:
  Request(std::uint32_t type, std::uint32_t index) {
    buffer_.type = type;
    buffer_.memory = V4L2_MEMORY_MMAP;
    buffer_.index = index;
    if (!isMultiplanar()) return;
    buffer_.m.planes = planes_.data();
    buffer_.length = VIDEO_MAX_PLANES;
  }
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;

  [[nodiscard]] int send(const VideoNode& node, unsigned long request) {
    return node.control(request, &buffer_);
  }

  [[nodiscard]] const v4l2_buffer& buffer() const { return buffer_; }
  [[nodiscard]] std::size_t pieceCount() const {
    return isMultiplanar() ? std::min<std::size_t>(buffer_.length, kMostPieces) : 1;
  }
  [[nodiscard]] std::size_t length(std::size_t piece) const {
    return isMultiplanar() ? planes_[piece].length : buffer_.length;
  }
  [[nodiscard]] std::uint32_t offset(std::size_t piece) const {
    return isMultiplanar() ? planes_[piece].m.mem_offset : buffer_.m.offset;
  }
  [[nodiscard]] std::size_t bytesUsed(std::size_t piece) const {
    return isMultiplanar() ? planes_[piece].bytesused : buffer_.bytesused;
  }
  [[nodiscard]] std::size_t start(std::size_t piece) const {
    return isMultiplanar() ? planes_[piece].data_offset : 0;
  }

 private:
  [[nodiscard]] bool isMultiplanar() const { return buffer_.type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE; }

  v4l2_buffer buffer_{};
  std::array<v4l2_plane, VIDEO_MAX_PLANES> planes_{};
};

CameraBuffers::CameraBuffers(std::shared_ptr<VideoNode> node, std::uint32_t type) : type_(type) {
  state_.with([&](State& state) { state.node = std::move(node); });
}

int CameraBuffers::make(std::shared_ptr<VideoNode> node, std::uint32_t type, std::uint32_t count,
                        std::shared_ptr<CameraBuffers>& buffers) {
  v4l2_requestbuffers request{};
  request.type = type;
  request.memory = V4L2_MEMORY_MMAP;
  request.count = count;
  if (const int error = node->control(VIDIOC_REQBUFS, &request)) return error;
  if (request.count == 0) return ENOMEM;
  buffers = std::make_shared<CameraBuffers>(std::move(node), type);
  const int error = buffers->mapAll(request.count);
  if (error) buffers->end();
  return error;
}

int CameraBuffers::mapAll(std::uint32_t count) {
  return state_.with([&](State& state) {
    for (std::uint32_t index = 0; index < count; ++index) {
      Request request(type_, index);
      if (const int error = request.send(*state.node, VIDIOC_QUERYBUF)) return error;
      Buffer buffer;
      for (std::size_t i = 0; i < request.pieceCount(); ++i) {
        buffer.pieces[i] = state.node->map(request.length(i), request.offset(i));
        if (!buffer.pieces[i]) return ENOMEM;
      }
      buffers_.push_back(std::move(buffer));
      if (const int error = queue(state, index)) return error;
    }
    return 0;
  });
}

int CameraBuffers::queue(State& state, std::uint32_t index) const {
  Request request(type_, index);
  const int error = request.send(*state.node, VIDIOC_QBUF);
  if (!error) ++state.waiting;
  return error;
}

int CameraBuffers::begin() {
  return state_.with([&](const State& state) {
    auto type = static_cast<int>(type_);
    return state.node ? state.node->control(VIDIOC_STREAMON, &type) : ENODEV;
  });
}

CameraBuffers::Taken CameraBuffers::take() {
  Request request(type_, 0);
  const int error = state_.with([&](State& state) {
    const int failure = state.node ? request.send(*state.node, VIDIOC_DQBUF) : ENODEV;
    if (!failure && state.waiting > 0) --state.waiting;
    return failure;
  });
  if (error) return {error, std::nullopt};
  const v4l2_buffer& buffer = request.buffer();
  if (buffer.index >= buffers_.size()) return {EIO, std::nullopt};

  Filled filled;
  filled.index = buffer.index;
  filled.isDamaged = (buffer.flags & V4L2_BUF_FLAG_ERROR) != 0;
  if ((buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC) {
    filled.time =
        static_cast<double>(buffer.timestamp.tv_sec) + 1e-6 * static_cast<double>(buffer.timestamp.tv_usec);
  }
  const auto& memory = buffers_[buffer.index].pieces;
  for (std::size_t i = 0; i < request.pieceCount() && memory[i]; ++i) {
    // Drivers have been seen to say anything.
    const std::size_t end = std::min(request.bytesUsed(i), memory[i]->size());
    const std::size_t start = std::min(request.start(i), end);
    filled.pieces[i] = {memory[i], start, end - start};
  }
  return {0, std::move(filled)};
}

void CameraBuffers::giveBack(std::uint32_t index) {
  state_.with([&](State& state) {
    // One that cannot be queued is one less; the wait for frames tells what is wrong.
    if (state.node) (void)queue(state, index);
  });
}

std::uint32_t CameraBuffers::waiting() const {
  return state_.with([](const State& state) { return state.waiting; });
}

void CameraBuffers::end() {
  const auto node = state_.with([](State& state) { return std::exchange(state.node, nullptr); });
  if (!node) return;
  // Both may take the driver seconds, which nobody who drops a frame has to wait for.
  auto type = static_cast<int>(type_);
  (void)node->control(VIDIOC_STREAMOFF, &type);
  buffers_.clear();
  // Frees the node for others, even if some of the memory is still looked at.
  v4l2_requestbuffers none{};
  none.type = type_;
  none.memory = V4L2_MEMORY_MMAP;
  (void)node->control(VIDIOC_REQBUFS, &none);
}

}  // namespace QelUtilVideo
