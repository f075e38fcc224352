#pragma once

#include <cstdint>
#include <vector>

namespace qeltest {

/// How V4L2 lays a picture out.
struct PictureShape {
  std::uint32_t format = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bytesPerLine = 0;  ///< 0: compressed
  std::uint32_t size = 0;          ///< bytes; of a compressed picture the most it takes
};

/// `padding`: bytes that each row, of luma where there are planes, is longer than it needs to be.
[[nodiscard]] PictureShape pictureShape(std::uint32_t format, std::uint32_t width, std::uint32_t height,
                                        std::uint32_t padding);

/// Colour bars, with the mark in the place that it has in that frame. Zeros for a format that is not known.
[[nodiscard]] std::vector<std::uint8_t> testPicture(const PictureShape& shape, std::uint32_t frame);

}  // namespace qeltest
