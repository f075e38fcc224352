#pragma once

#include "platform/Result.h"
#include "platform/Synchronised.h"
#include "platform/linux/v4l2/VideoNode.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// The driver's buffers of one stream, from when they are asked for until the end. One thread, but for giving
/// back, which any may do.
class CameraBuffers : public std::enable_shared_from_this<CameraBuffers> {
 public:
  static constexpr std::size_t kMostPieces = 3;

  /// A buffer that the driver has filled.
  struct Filled {
    struct Piece {
      std::shared_ptr<MappedBuffer> memory;
      std::size_t start = 0;  ///< where the picture begins
      std::size_t size = 0;   ///< bytes of the picture, from there on
    };
    std::uint32_t index = 0;
    double time = 0;  ///< seconds of the monotonic clock; 0: the driver has another clock
    bool isDamaged = false;
    std::array<Piece, kMostPieces> pieces;  ///< as many as the format has
  };
  struct Taken {
    int error = 0;  ///< EAGAIN: there is none yet
    std::optional<Filled> buffer;
  };

  /// Asks the driver for `count` buffers, maps them and hands them to it. Or the error's number.
  [[nodiscard]] static int make(std::shared_ptr<VideoNode> node, std::uint32_t type, std::uint32_t count,
                                std::shared_ptr<CameraBuffers>& buffers);
  CameraBuffers(std::shared_ptr<VideoNode> node, std::uint32_t type);

  /// Begins to stream. 0, or the error's number.
  [[nodiscard]] int begin();
  [[nodiscard]] Taken take();
  /// Hands a taken one to the driver again; nothing after the end.
  void giveBack(std::uint32_t index);
  /// How many the driver has to fill.
  [[nodiscard]] std::uint32_t waiting() const;
  /// Stops the stream and gives the buffers up; their memory stays with those who hold it. The node, which
  /// others may hold, is not used any more.
  void end();

 private:
  struct Buffer {
    std::array<std::shared_ptr<MappedBuffer>, kMostPieces> pieces;
  };
  struct State {
    std::shared_ptr<VideoNode> node;  ///< null at the end
    std::uint32_t waiting = 0;
  };
  class Request;

  [[nodiscard]] int mapAll(std::uint32_t count);
  [[nodiscard]] int queue(State& state, std::uint32_t index) const;

  const std::uint32_t type_;
  std::vector<Buffer> buffers_;
  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
