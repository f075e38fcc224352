#pragma once

#include "render/GeometryArithmetic.h"
#include "render/opengl/GL.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <array>
#include <cstdint>

namespace QelUtilVideo::opengl {

/// The planes of one view's current frame as two textures: luma on unit 0, interleaved chroma on
/// unit 1, where they stay bound. A frame is uploaded once however often it is shown. The GL objects
/// live from `prepare` to `release`.
class Texture {
 public:
  using Size = PixelSize<std::int32_t>;

  explicit Texture(GL gl);
  Texture(const Texture&) = delete;
  Texture& operator=(const Texture&) = delete;

  /// Whether a buffer can be uploaded: two planes with an area, rows that hold them, an even number of
  /// bytes per chroma row, nothing beyond 32 bits.
  [[nodiscard]] static bool accepts(const CVPixelBuffer& pixelBuffer);

  /// Makes the textures, forgetting all of a context that is gone.
  void prepare();
  /// Copies an accepted buffer, whose base address the caller has locked, to the textures. A frame with
  /// the timestamp (seconds) of the one before is the same frame: nothing happens.
  void upload(const CVPixelBuffer& pixelBuffer, double timestamp);
  void release();

  /// Size of the luma plane uploaded last; (0, 0) before the first upload.
  [[nodiscard]] Size imageSize() const { return size_[0]; }

 private:
  void uploadPlane(const CVPixelBuffer& pixelBuffer, std::size_t plane);

  GL gl_;
  double timestamp_ = 0;
  std::array<GLuint, 2> texture_{};
  std::array<Size, 2> size_{};
};

}  // namespace QelUtilVideo::opengl
