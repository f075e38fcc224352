#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace QelUtilVideo {

class LockedPixels;

/// Decodes the pictures of a motion JPEG stream, which need not have Huffman tables. It keeps its scratch
/// memory between two pictures. One thread at a time.
class JpegDecoder {
 public:
  /// Makes a bi-planar frame of a size in pixels, or null when it does not want to.
  using MakeFrame = std::function<CVPixelBufferRef(std::size_t width, std::size_t height)>;

  /// The picture of the file in a frame of `makeFrame`, whose codes are those of video range whatever its
  /// format says. Null when the file is damaged (its end missing, codes that mean nothing), its picture is
  /// not one of luma and chroma or of luma alone, or `makeFrame` gave none. Bytes that nobody claims between
  /// two markers are no damage: many cameras leave some. The bytes may change meanwhile. Throws
  /// `std::bad_alloc`.
  [[nodiscard]] CVPixelBufferRef decode(std::span<const std::byte> bytes, const MakeFrame& makeFrame);

 private:
  struct Header;

  [[nodiscard]] bool decodeInto(const LockedPixels& frame, void* decoder, std::span<const std::byte> file,
                                const Header& header);

  std::vector<std::byte> file_;                      ///< as it was when it was given
  std::array<std::vector<std::uint8_t>, 3> planes_;  ///< luma only where the frame cannot take it
};

}  // namespace QelUtilVideo
