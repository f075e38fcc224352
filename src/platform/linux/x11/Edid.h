#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace QelUtilVideo {

/// What a display says about itself in its EDID's first block.
struct EdidBlock {
  std::uint16_t manufacturer = 0;  ///< three letters of five bits each, as the block holds them
  std::uint16_t productCode = 0;
  std::uint32_t serialNumber = 0;
  std::string productName;  ///< printable ASCII; empty when the block names none

  friend bool operator==(const EdidBlock&, const EdidBlock&) = default;

  /// Reads the first 128 of any bytes; absent when they are fewer, do not begin like an EDID, or fail
  /// their checksum.
  [[nodiscard]] static std::optional<EdidBlock> parse(std::span<const std::uint8_t> bytes);
};

}  // namespace QelUtilVideo
