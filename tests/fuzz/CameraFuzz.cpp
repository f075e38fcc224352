// A camera's picture: the first five bytes say its kind, size and rows, the rest is what lies in memory.

#include "fuzz/Require.h"
#include "platform/linux/media/CameraFrameMaker.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using namespace QelUtilVideo;
using qelfuzz::require;

CameraPicture pictureOf(const std::uint8_t* head, const std::vector<std::byte>& bytes) {
  constexpr int kinds = static_cast<int>(CameraPixels::grey) + 1;
  CameraPicture picture{static_cast<CameraPixels>(head[0] % kinds), head[1], head[2], (head[4] & 1) != 0, {}};
  // Planes that follow each other, and may run over.
  std::size_t start = 0;
  for (CameraPlane& plane : picture.planes) {
    plane = {bytes.data() + start, bytes.size() - start, head[3]};
    start = std::min(bytes.size(), start + std::size_t{head[2]} * head[3] / (1 + (head[4] >> 1 & 3)));
  }
  return picture;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t headSize = 5;
  if (size < headSize) return 0;
  std::vector<std::byte> bytes(size - headSize);
  if (!bytes.empty()) std::memcpy(bytes.data(), data + headSize, bytes.size());
  CameraPicture picture = pictureOf(data, bytes);
  static CameraFrameMaker maker;
  const CVPixelBufferRef frame = maker.make(picture);
  if (!frame) return 0;
  require(frame->format() == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, "frames have one format");
  if (picture.pixels == CameraPixels::motionJPEG) return 0;
  require(frame->width() == picture.width && frame->height() == picture.height,
          "a frame has the picture's size");
  picture.planes[0].size = 0;
  require(!maker.make(picture), "rows have their bytes");
  return 0;
}
