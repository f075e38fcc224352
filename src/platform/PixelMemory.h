#pragma once

#include "platform/Synchronised.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace QelUtilVideo {

class CVPixelBuffer;

/// Bytes for one picture at a time: whole pages, which are mapped when they are first touched. Others may
/// have made something of the address, such as a mapping into a graphics processor, and are told before it
/// goes. Any thread.
class PixelMemory {
 public:
  /// At least `size` bytes, not initialised; null when there is no memory.
  [[nodiscard]] static std::shared_ptr<PixelMemory> allocate(std::size_t size);
  /// The one that a buffer's bytes lie in; null when they are somebody else's.
  [[nodiscard]] static std::shared_ptr<PixelMemory> of(const CVPixelBuffer& buffer);
  /// Has a new buffer, whose bytes lie in the memory, keep it.
  static void keep(std::shared_ptr<PixelMemory> memory, CVPixelBuffer& buffer);
  PixelMemory(const PixelMemory&) = delete;
  PixelMemory& operator=(const PixelMemory&) = delete;
  ~PixelMemory();

  /// Where a page begins.
  [[nodiscard]] std::byte* bytes() const { return bytes_.get(); }
  /// In bytes, whole pages.
  [[nodiscard]] std::size_t size() const { return size_; }
  /// Calls `farewell` once, before the bytes are freed, on the thread that frees them. It must not throw.
  void beforeItGoes(std::function<void()> farewell);

 private:
  struct Free {
    void operator()(std::byte* bytes) const;
  };
  using Bytes = std::unique_ptr<std::byte[], Free>;

  PixelMemory(Bytes bytes, std::size_t size) : bytes_(std::move(bytes)), size_(size) {}

  const Bytes bytes_;
  const std::size_t size_;
  Synchronised<std::vector<std::function<void()>>> farewells_;
};

}  // namespace QelUtilVideo
