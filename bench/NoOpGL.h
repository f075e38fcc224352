#pragma once

#include "platform/OpenGLFunctions.h"

#include <algorithm>
#include <cstdint>

namespace QelUtilVideo {

/// OpenGL that does nothing, successfully; what is left of the time is the caller's own. Only the draws
/// are counted.
class NoOpGL final : public OpenGLFunctions {
 public:
  std::int64_t draws = 0;

  GLenum glGetError() override { return GL_NO_ERROR; }
  void glGetIntegerv(GLenum, GLint* value) override { *value = 0; }
  void glClearColor(GLfloat, GLfloat, GLfloat, GLfloat) override {}
  void glClear(GLbitfield) override {}
  void glViewport(GLint, GLint, GLsizei, GLsizei) override {}
  void glDrawArrays(GLenum, GLint, GLsizei) override { draws += 1; }

  void glGenTextures(GLsizei count, GLuint* names) override { generate(count, names); }
  void glDeleteTextures(GLsizei, const GLuint*) override {}
  void glActiveTexture(GLenum) override {}
  void glBindTexture(GLenum, GLuint) override {}
  void glTexParameteri(GLenum, GLenum, GLint) override {}
  void glPixelStorei(GLenum, GLint) override {}
  void glTexImage2D(GLenum, GLint, GLint, GLsizei, GLsizei, GLint, GLenum, GLenum, const void*) override {}
  void glTexSubImage2D(GLenum, GLint, GLint, GLint, GLsizei, GLsizei, GLenum, GLenum, const void*) override {}

  void glGenFramebuffers(GLsizei count, GLuint* names) override { generate(count, names); }
  void glDeleteFramebuffers(GLsizei, const GLuint*) override {}
  void glBindFramebuffer(GLenum, GLuint) override {}
  void glFramebufferTexture2D(GLenum, GLenum, GLenum, GLuint, GLint) override {}
  GLenum glCheckFramebufferStatus(GLenum) override { return GL_FRAMEBUFFER_COMPLETE; }

  GLuint glCreateShader(GLenum) override { return nextName_++; }
  void glDeleteShader(GLuint) override {}
  void glShaderSource(GLuint, GLsizei, const GLchar* const*, const GLint*) override {}
  void glCompileShader(GLuint) override {}
  void glGetShaderiv(GLuint, GLenum, GLint* value) override { *value = 1; }
  void glGetShaderInfoLog(GLuint, GLsizei, GLsizei*, GLchar*) override {}

  GLuint glCreateProgram() override { return nextName_++; }
  void glDeleteProgram(GLuint) override {}
  void glAttachShader(GLuint, GLuint) override {}
  void glDetachShader(GLuint, GLuint) override {}
  void glLinkProgram(GLuint) override {}
  void glValidateProgram(GLuint) override {}
  void glGetProgramiv(GLuint, GLenum, GLint* value) override { *value = 1; }
  void glGetProgramInfoLog(GLuint, GLsizei, GLsizei*, GLchar*) override {}
  void glUseProgram(GLuint) override {}
  GLint glGetAttribLocation(GLuint, const GLchar*) override { return 0; }
  GLint glGetUniformLocation(GLuint, const GLchar*) override { return 0; }
  void glUniform1i(GLint, GLint) override {}
  void glUniform2f(GLint, GLfloat, GLfloat) override {}
  void glUniformMatrix4fv(GLint, GLsizei, GLboolean, const GLfloat*) override {}

  void glGenVertexArrays(GLsizei count, GLuint* names) override { generate(count, names); }
  void glDeleteVertexArrays(GLsizei, const GLuint*) override {}
  void glBindVertexArray(GLuint) override {}
  void glGenBuffers(GLsizei count, GLuint* names) override { generate(count, names); }
  void glDeleteBuffers(GLsizei, const GLuint*) override {}
  void glBindBuffer(GLenum, GLuint) override {}
  void glBufferData(GLenum, GLsizeiptr, const void*, GLenum) override {}
  void glEnableVertexAttribArray(GLuint) override {}
  void glVertexAttribPointer(GLuint, GLint, GLenum, GLboolean, GLsizei, const void*) override {}

 private:
  void generate(GLsizei count, GLuint* names) {
    std::generate_n(names, count, [this] { return nextName_++; });
  }

  GLuint nextName_ = 1;
};

}  // namespace QelUtilVideo
