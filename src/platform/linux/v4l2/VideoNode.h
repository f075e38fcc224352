#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace QelUtilVideo {

/// A driver's buffer in this process's memory, which stays there as long as the object, the node closed or
/// the camera unplugged.
class MappedBuffer {
 public:
  virtual ~MappedBuffer() = default;
  [[nodiscard]] virtual std::byte* bytes() const = 0;
  [[nodiscard]] virtual std::size_t size() const = 0;
};

/// An open V4L2 node, closed with the object. Calls on different threads do not disturb each other.
class VideoNode {
 public:
  enum class Awaited {
    frame,    ///< a buffer can be taken, or the attempt will say why not
    silence,  ///< the patience is at an end
    stop,
  };

  virtual ~VideoNode() = default;
  /// An ioctl. 0, or the error's number.
  [[nodiscard]] virtual int control(unsigned long request, void* argument) const = 0;
  /// Null when the system refuses.
  [[nodiscard]] virtual std::shared_ptr<MappedBuffer> map(std::size_t size, std::uint32_t offset) const = 0;
  /// Waits for a frame, as long as the patience lasts (none: for ever), or until `stop` is readable.
  [[nodiscard]] virtual Awaited wait(int stop, std::optional<std::chrono::nanoseconds> patience) const = 0;
};

struct OpenedNode {
  std::shared_ptr<VideoNode> node;  ///< null: it could not be opened
  int error = 0;                    ///< why not
};

/// Opens a node to stream from; no driver makes the caller wait for frames then.
[[nodiscard]] OpenedNode openVideoNode(const std::string& path);

}  // namespace QelUtilVideo
