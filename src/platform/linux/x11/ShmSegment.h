#pragma once

#include "platform/linux/x11/X11Connection.h"

#include <xcb/shm.h>

#include <cstddef>
#include <functional>
#include <memory>

namespace QelUtilVideo {

/// A piece of memory that this process and the X server both have mapped. Nothing of it stays behind
/// when the process dies.
class ShmSegment {
  struct Token {};
  using Memory = std::unique_ptr<std::byte, std::function<void(std::byte*)>>;

 public:
  /// Null when neither kind of shared memory works with this server.
  static std::unique_ptr<ShmSegment> make(const std::shared_ptr<X11Connection>& connection, std::size_t size);

  ShmSegment(Token, std::shared_ptr<X11Connection> connection, Memory memory, std::size_t size,
             xcb_shm_seg_t id);
  ShmSegment(const ShmSegment&) = delete;
  ShmSegment& operator=(const ShmSegment&) = delete;
  ~ShmSegment();

  [[nodiscard]] std::byte* data() const { return memory_.get(); }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] xcb_shm_seg_t id() const { return id_; }

 private:
  static std::unique_ptr<ShmSegment> makeByDescriptor(const std::shared_ptr<X11Connection>& connection,
                                                      std::size_t size);
  static std::unique_ptr<ShmSegment> makeByKey(const std::shared_ptr<X11Connection>& connection,
                                               std::size_t size);

  std::shared_ptr<X11Connection> connection_;
  Memory memory_;
  std::size_t size_;
  xcb_shm_seg_t id_;
};

}  // namespace QelUtilVideo
