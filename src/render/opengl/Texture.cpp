#include "render/opengl/Texture.h"

#include "render/opengl/TextureUnit.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

namespace QelUtilVideo::opengl {

namespace {

constexpr std::array<GLenum, 2> planeFormats{GL_RED, GL_RG};

/// Rows begin at multiples of this many bytes unless OpenGL is told otherwise.
constexpr GLint defaultRowAlignment = 4;

constexpr GLuint textureUnit(std::size_t plane) { return static_cast<GLuint>(plane); }

/// A texel of plane 0 is one byte, one of plane 1 two.
constexpr std::size_t bytesPerTexel(std::size_t plane) { return plane + 1; }

bool acceptsPlane(const CVPixelBuffer& pixelBuffer, std::size_t plane) {
  constexpr std::size_t largest = std::numeric_limits<GLint>::max();
  const std::size_t width = CVPixelBufferGetWidthOfPlane(pixelBuffer, plane);
  const std::size_t height = CVPixelBufferGetHeightOfPlane(pixelBuffer, plane);
  const std::size_t bytesPerRow = CVPixelBufferGetBytesPerRowOfPlane(pixelBuffer, plane);
  return width > 0 && height > 0 && height <= largest && bytesPerRow <= largest &&
         bytesPerRow % bytesPerTexel(plane) == 0 && width <= bytesPerRow / bytesPerTexel(plane);
}

}  // namespace

Texture::Texture(GL gl) : gl_(std::move(gl)) {}

bool Texture::accepts(const CVPixelBuffer& pixelBuffer) {
  return CVPixelBufferGetPlaneCount(pixelBuffer) == 2 && acceptsPlane(pixelBuffer, 0) &&
         acceptsPlane(pixelBuffer, 1);
}

void Texture::prepare() {
  timestamp_ = 0;
  size_ = {};
  gl_.checked()->glGenTextures(2, texture_.data());
  for (std::size_t plane = 0; plane < 2; ++plane) {
    bindClampedToUnit(gl_, textureUnit(plane), texture_[plane]);
  }
}

void Texture::upload(const CVPixelBuffer& pixelBuffer, double timestamp) {
  if (timestamp == timestamp_) return;
  timestamp_ = timestamp;
  for (std::size_t plane = 0; plane < 2; ++plane) uploadPlane(pixelBuffer, plane);
  gl_.checked()->glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
}

void Texture::release() {
  gl_.checked()->glDeleteTextures(2, texture_.data());
  texture_ = {};
}

void Texture::uploadPlane(const CVPixelBuffer& pixelBuffer, std::size_t plane) {
  const Size size{static_cast<GLint>(CVPixelBufferGetWidthOfPlane(pixelBuffer, plane)),
                  static_cast<GLint>(CVPixelBufferGetHeightOfPlane(pixelBuffer, plane))};
  const std::size_t bytesPerRow = CVPixelBufferGetBytesPerRowOfPlane(pixelBuffer, plane);
  const std::byte* base = CVPixelBufferGetBaseAddressOfPlane(pixelBuffer, plane);
  const GLenum format = planeFormats[plane];

  bindToUnit(gl_, textureUnit(plane), texture_[plane]);
  gl_.checked()->glPixelStorei(GL_UNPACK_ROW_LENGTH, static_cast<GLint>(bytesPerRow / bytesPerTexel(plane)));
  // Rows that hosts laid out more tightly than OpenGL expects would come out slanted.
  const bool unaligned = bytesPerRow % defaultRowAlignment != 0;
  if (unaligned) gl_.checked()->glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
  if (size != size_[plane]) {
    gl_.checked()->glTexImage2D(GL_TEXTURE_2D, 0, static_cast<GLint>(format), size.width, size.height, 0,
                                format, GL_UNSIGNED_BYTE, base);
    size_[plane] = size;
  } else {
    gl_.checked()->glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, size.width, size.height, format, GL_UNSIGNED_BYTE,
                                   base);
  }
  if (unaligned) gl_.checked()->glPixelStorei(GL_UNPACK_ALIGNMENT, defaultRowAlignment);
}

}  // namespace QelUtilVideo::opengl
