#include "render/opengl/GL.h"

#include "log/Log.h"

namespace QelUtilVideo::opengl {

bool GL::noError(std::source_location where) const {
  const GLenum error = functions().glGetError();
  if (error == GL_NO_ERROR) return true;
  log(LogLevel::error, logName_ + " GL error: " + std::to_string(error), where);
  return false;
}

}  // namespace QelUtilVideo::opengl
