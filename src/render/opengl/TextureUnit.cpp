#include "render/opengl/TextureUnit.h"

namespace QelUtilVideo::opengl {

void bindToUnit(const GL& gl, GLuint unit, GLuint texture) {
  gl.checked()->glActiveTexture(GL_TEXTURE0 + unit);
  gl.checked()->glBindTexture(GL_TEXTURE_2D, texture);
}

void bindClampedToUnit(const GL& gl, GLuint unit, GLuint texture) {
  bindToUnit(gl, unit, texture);
  gl.checked()->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
  gl.checked()->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
  gl.checked()->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
  gl.checked()->glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
}

}  // namespace QelUtilVideo::opengl
