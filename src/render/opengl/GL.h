#pragma once

#include "platform/OpenGL.h"
#include "platform/OpenGLFunctions.h"

#include <source_location>
#include <string>
#include <utility>

namespace QelUtilVideo::opengl {

/// Calls OpenGL for one view. A checked call reads the error state when its statement ends and logs
/// what it finds; the work goes on. A context must be current on the calling thread.
///
///     gl.checked()->glClear(GL_COLOR_BUFFER_BIT);
///     shader = gl.functions().glCreateShader(GL_VERTEX_SHADER);   // not checked
class GL {
 public:
  /// Checks when it goes out of scope, which is the end of the statement that asked for it.
  class CheckedCall {
   public:
    CheckedCall(const GL& gl, std::source_location where) : gl_(gl), where_(where) {}
    CheckedCall(const CheckedCall&) = delete;
    CheckedCall& operator=(const CheckedCall&) = delete;
    ~CheckedCall() { static_cast<void>(gl_.noError(where_)); }
    OpenGLFunctions* operator->() const { return &gl_.functions(); }

   private:
    const GL& gl_;
    std::source_location where_;
  };

  GL(OpenGL& openGL, std::string logName) : openGL_(openGL), logName_(std::move(logName)) {}

  [[nodiscard]] CheckedCall checked(std::source_location where = std::source_location::current()) const {
    return {*this, where};
  }
  /// Reads the error state once and logs an error; answers whether there was none. For calls whose
  /// caller has to know.
  [[nodiscard]] bool noError(std::source_location where = std::source_location::current()) const;

  [[nodiscard]] OpenGLFunctions& functions() const { return openGL_.functions(); }
  [[nodiscard]] const std::string& logName() const { return logName_; }

 private:
  OpenGL& openGL_;
  std::string logName_;
};

}  // namespace QelUtilVideo::opengl
