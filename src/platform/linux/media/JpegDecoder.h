#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace QelUtilVideo {

/// Decodes the frames of a motion JPEG stream. One thread at a time.
class JpegDecoder {
 public:
  using MakeFrame = std::function<CVPixelBufferRef(std::size_t width, std::size_t height)>;

  /// The picture in the frame that `makeFrame` makes, bi-planar 4:2:0 in video range; null when the file is
  /// damaged, or no picture of luma and chroma, or there is no frame. A file without Huffman tables has the
  /// usual ones.
  [[nodiscard]] CVPixelBufferRef decode(std::span<const std::byte> file, const MakeFrame& makeFrame);

 private:
  struct Header;
  [[nodiscard]] bool decodeInto(CVPixelBuffer& frame, void* decoder, std::span<const std::byte> file,
                                const Header& header);
  void interleave(CVPixelBuffer& frame, const Header& header);

  std::vector<std::uint8_t> luma_;  ///< where the decoder writes more than the frame holds
  std::vector<std::uint8_t> blueDifference_, redDifference_;  ///< as they come
  std::vector<std::uint8_t> scaled_;
};

}  // namespace QelUtilVideo
