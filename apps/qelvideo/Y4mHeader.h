#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qelvideo {

/// The first line of a YUV4MPEG2 film: one size and one frame rate for all frames. Only planar 4:2:0
/// with 8 bits is known here.
struct Y4mHeader {
  static constexpr std::size_t longestLine = 4096;
  static constexpr std::size_t largestSide = 16384;

  std::size_t width = 0;
  std::size_t height = 0;
  std::uint32_t rateNumerator = 25;   ///< frames …
  std::uint32_t rateDenominator = 1;  ///< … per this many seconds
  bool fullRange = false;

  /// Reads a line, without its line feed. Throws `Failure` that says what is wrong with it.
  [[nodiscard]] static Y4mHeader parse(std::string_view line);
  /// The line, with its line feed.
  [[nodiscard]] std::string text() const;

  /// Seconds from one frame to the next.
  [[nodiscard]] double frameDuration() const { return static_cast<double>(rateDenominator) / rateNumerator; }
  /// Sides of the two chroma planes.
  [[nodiscard]] std::size_t chromaWidth() const { return (width + 1) / 2; }
  [[nodiscard]] std::size_t chromaHeight() const { return (height + 1) / 2; }
  /// Bytes of a frame's three planes.
  [[nodiscard]] std::size_t frameSize() const { return width * height + 2 * chromaWidth() * chromaHeight(); }

  friend bool operator==(const Y4mHeader&, const Y4mHeader&) = default;
};

}  // namespace qelvideo
