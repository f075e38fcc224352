#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <xcb/shm.h>

#include <atomic>
#include <cstddef>
#include <limits>
#include <memory>
#include <vector>

namespace QelUtilVideo {

class ShmSegment;

/// Bytes in memory that the X server writes to.
class ShmBytes : public ImageBytes {
 public:
  /// The server's name for the memory.
  [[nodiscard]] virtual xcb_shm_seg_t segment() const = 0;
};

/// Hands out memory shared with the X server, and takes it back when the bytes are dropped, on whichever
/// thread that is. Bytes may outlive the pool and the server. Any thread.
class ShmPool {
 public:
  explicit ShmPool(std::shared_ptr<X11Connection> connection);
  ShmPool(const ShmPool&) = delete;
  ShmPool& operator=(const ShmPool&) = delete;
  ~ShmPool();

  /// At least `size` bytes, not set; null when the server cannot share so much with this process.
  [[nodiscard]] std::shared_ptr<ShmBytes> take(std::size_t size);

 private:
  class PooledBytes;
  /// Segments that wait for use, smallest first.
  using FreeList = Synchronised<std::vector<std::unique_ptr<ShmSegment>>>;

  [[nodiscard]] std::unique_ptr<ShmSegment> takeFree(std::size_t size);

  std::shared_ptr<X11Connection> connection_;
  std::shared_ptr<FreeList> free_;
  std::atomic<std::size_t> refusedSize_{std::numeric_limits<std::size_t>::max()};  ///< the smallest one
};

}  // namespace QelUtilVideo
