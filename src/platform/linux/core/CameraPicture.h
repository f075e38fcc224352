#pragma once

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <array>
#include <cstddef>
#include <functional>

namespace QelUtilVideo {

/// How a camera's pictures lie in memory; names of packed orders give the bytes as they follow each other.
enum class CameraPixels {
  nv12,        ///< luma, then Cb and Cr interleaved at half the resolution both ways
  nv21,        ///< the same with Cr before Cb
  yuyv,        ///< packed 4:2:2
  uyvy,        ///< packed 4:2:2
  yvyu,        ///< packed 4:2:2
  vyuy,        ///< packed 4:2:2
  yuv420,      ///< luma, Cb, Cr, each a plane
  yvu420,      ///< luma, Cr, Cb, each a plane
  yuv422,      ///< luma, Cb, Cr, each a plane, chroma at half the width
  motionJPEG,  ///< a JPEG file each; Huffman tables may be missing
  rgb24,
  bgr24,
  bgrx,  ///< 32 bits, the fourth byte means nothing
  rgbx,
  xrgb,
  grey,  ///< luma alone
};

struct CameraPlane {
  const std::byte* bytes = nullptr;
  std::size_t size = 0;         ///< bytes there are, which may be fewer than the rows need
  std::size_t bytesPerRow = 0;  ///< distance of two rows; unused for motion JPEG
};

/// One picture as a camera gave it; the bytes are borrowed.
struct CameraPicture {
  CameraPixels pixels = CameraPixels::nv12;
  std::size_t width = 0;
  std::size_t height = 0;
  bool isFullRange = false;           ///< of YUV and grey: 0 to 255, not 16 to 235; motion JPEG always is
  std::array<CameraPlane, 3> planes;  ///< as many as the pixels have, each with its own start
};

/// Turns a camera's picture into a frame, bi-planar 4:2:0 in video range; null when the picture is damaged or
/// there is no memory. One thread at a time.
using MakeCameraFrame = std::function<CVPixelBufferRef(const CameraPicture&)>;

}  // namespace QelUtilVideo
