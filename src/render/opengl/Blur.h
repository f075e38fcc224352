#pragma once

#include "render/GeometryArithmetic.h"
#include "render/opengl/GL.h"
#include "render/opengl/Program.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace QelUtilVideo::opengl {

/// Two off-screen pictures of an image's size, on texture units 2 and 3, and the two passes of a Gaussian
/// blur: the first steps along x from picture 0 to picture 1, the second along y from there to wherever
/// it is drawn. The passes are compiled for the current strength, and again when it or the image's size
/// changes. The GL objects live from `prepare` to `release`.
///
///     blur.prepare();
///     const auto [active, changed] = blur.update(radius, imageSize);
///     if (active) {
///       ...                                       // into blur.framebuffer(0): the image
///       blur.vertBlur().use(), blur.vertBlur().draw();   // into blur.framebuffer(1)
///       if (changed) ...                          // the second pass lost its quad and transform
///       blur.horzBlur().use(), blur.horzBlur().draw();   // into the view
///     }
///     blur.release();
class Blur {
 public:
  using Size = PixelSize<std::int32_t>;
  struct State {
    bool active = false;   ///< there is something to blur
    bool changed = false;  ///< strength or size are not those of the last time
  };

  explicit Blur(GL gl);
  Blur(const Blur&) = delete;
  Blur& operator=(const Blur&) = delete;

  /// Makes the GL objects, forgetting all of a context that is gone.
  void prepare();
  /// Takes over the radius, a fraction of the geometric mean of the image's sides, and the image's size
  /// as it lies in memory. A radius that is not a finite number above 0 turns the blur off. After a
  /// change that leaves it on, framebuffer 1 is bound and the second pass in use.
  [[nodiscard]] State update(float radius, Size image);
  void release();

  /// Draws into picture 0 or 1.
  [[nodiscard]] GLuint framebuffer(std::size_t picture) const { return framebuffer_.at(picture); }
  [[nodiscard]] const Program& vertBlur() const { return vertBlur_; }
  [[nodiscard]] const Program& horzBlur() const { return horzBlur_; }

 private:
  void setup(std::uint32_t sigma, Size image);
  void allocate(std::size_t picture, Size image) const;
  /// The program must be in use. `x`, `y`: from one texel to the next, in texture coordinates.
  void setInput(const Program& program, std::size_t picture, GLfloat x, GLfloat y) const;

  GL gl_;
  std::array<GLuint, 2> texture_{};
  std::array<GLuint, 2> framebuffer_{};
  Program vertBlur_;
  Program horzBlur_;  ///< shares the shaders of `vertBlur_`
  Size size_;
  std::uint32_t radius_ = 0;  ///< the standard deviation in pixels; 0: off
};

}  // namespace QelUtilVideo::opengl
