#pragma once

#include "platform/Metal.h"

#include <cstddef>
#include <span>
#include <vector>

namespace QelUtilVideo {

/// Bytes of no processor: each submission that needs them takes a copy along, which for a few hundred of them
/// costs less than memory of the processor's would, and outlives a processor that is lost.
class ByteBuffer final : public MTLBuffer {
 public:
  explicit ByteBuffer(std::span<const std::byte> bytes) : bytes_(bytes.begin(), bytes.end()) {}
  [[nodiscard]] std::span<const std::byte> bytes() const { return bytes_; }
  [[nodiscard]] std::size_t length() const override { return bytes_.size(); }

 private:
  const std::vector<std::byte> bytes_;
};

}  // namespace QelUtilVideo
