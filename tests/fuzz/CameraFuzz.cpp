// A camera's picture: seven bytes say what the camera claims, the rest is what it gave, cut into three
// planes.

#include "fuzz/Require.h"
#include "platform/linux/media/CameraFrameMaker.h"
#include "support/GuardedBytes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

namespace {

using qelfuzz::require;
using namespace QelUtilVideo;

constexpr std::size_t longestPlane = 1 << 16;

/// The frame's bytes are all there: a tool that watches memory sees when they are not.
std::size_t sumOf(const CVPixelBuffer& frame) {
  std::size_t sum = 0;
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& found = frame.planes()[plane];
    for (std::size_t y = 0; y < found.height; ++y) {
      const std::byte* const row = found.baseAddress + y * found.bytesPerRow;
      for (std::size_t x = 0; x < found.width * (plane + 1); ++x) sum += std::to_integer<std::size_t>(row[x]);
    }
  }
  return sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t claims = 7;
  if (size < claims || size > longestPlane) return 0;
  static std::array<qeltest::GuardedBytes, 3> memory{qeltest::GuardedBytes(longestPlane),
                                                     qeltest::GuardedBytes(longestPlane),
                                                     qeltest::GuardedBytes(longestPlane)};
  static CameraFrameMaker maker;

  CameraPicture picture;
  picture.pixels = static_cast<CameraPixels>(data[0] % 17);  // one that nobody knows among them
  picture.isFullRange = data[1] % 2 != 0;
  picture.width = data[2];
  picture.height = data[3];
  std::span<const std::uint8_t> left(data + claims, size - claims);
  const bool isWhole = picture.pixels == CameraPixels::motionJPEG;
  for (std::size_t i = 0; i < memory.size(); ++i) {
    const std::size_t share = isWhole  ? left.size()
                              : i == 0 ? left.size() * data[4] / 255
                                       : left.size() / (3 - i);
    const auto held = memory[i].hold(left.first(std::min(share, left.size())));
    left = left.subspan(held.size());
    picture.planes[i] = {held.data(), held.size(), data[i == 0 ? 5 : 6]};
  }

  const CVPixelBufferRef frame = maker.make(picture);
  if (!frame) return 0;
  require(picture.width > 0 && picture.height > 0, "an empty picture has no frame");
  require(frame->format() == kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, "frames are in video range");
  if (!isWhole) {
    require(frame->width() == picture.width && frame->height() == picture.height, "a frame has its size");
  }
  require(maker.make(picture) != nullptr, "what was good once is good again");
  require(sumOf(*frame) <= 3 * 255 * frame->width() * frame->height(), "a frame has its bytes");
  return 0;
}
