#include "platform/linux/egl/EpoxyFunctions.h"

#include "platform/OpenGLFunctions.h"

// libepoxy's names are macros that would spoil the constants above if they came first.
#include "platform/linux/egl/EglContext.h"

#include <epoxy/gl.h>

// Its functions have a second name by a macro each, which would rename the members as well.
#undef glActiveTexture
#undef glAttachShader
#undef glBindBuffer
#undef glBindFramebuffer
#undef glBindTexture
#undef glBindVertexArray
#undef glBufferData
#undef glCheckFramebufferStatus
#undef glClear
#undef glClearColor
#undef glCompileShader
#undef glCreateProgram
#undef glCreateShader
#undef glDeleteBuffers
#undef glDeleteFramebuffers
#undef glDeleteProgram
#undef glDeleteShader
#undef glDeleteTextures
#undef glDeleteVertexArrays
#undef glDetachShader
#undef glDrawArrays
#undef glEnableVertexAttribArray
#undef glFramebufferTexture2D
#undef glGenBuffers
#undef glGenFramebuffers
#undef glGenTextures
#undef glGenVertexArrays
#undef glGetAttribLocation
#undef glGetError
#undef glGetIntegerv
#undef glGetProgramInfoLog
#undef glGetProgramiv
#undef glGetShaderInfoLog
#undef glGetShaderiv
#undef glGetUniformLocation
#undef glLinkProgram
#undef glPixelStorei
#undef glShaderSource
#undef glTexImage2D
#undef glTexParameteri
#undef glTexSubImage2D
#undef glUniform1i
#undef glUniform2f
#undef glUniformMatrix4fv
#undef glUseProgram
#undef glValidateProgram
#undef glVertexAttribPointer
#undef glViewport

namespace QelUtilVideo {

namespace {

template <class Function, class... Arguments>
auto call(Function function, Arguments... arguments) -> decltype(function(arguments...)) {
  using Answer = decltype(function(arguments...));
  if (!EglContext::isAnyCurrent()) return Answer();
  return function(arguments...);
}

class EpoxyFunctions final : public OpenGLFunctions {
 public:
  GLenum glGetError() override { return call(epoxy_glGetError); }
  void glGetIntegerv(GLenum name, GLint* value) override { call(epoxy_glGetIntegerv, name, value); }
  void glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) override {
    call(epoxy_glClearColor, r, g, b, a);
  }
  void glClear(GLbitfield mask) override { call(epoxy_glClear, mask); }
  void glViewport(GLint x, GLint y, GLsizei width, GLsizei height) override {
    call(epoxy_glViewport, x, y, width, height);
  }
  void glDrawArrays(GLenum mode, GLint first, GLsizei count) override {
    call(epoxy_glDrawArrays, mode, first, count);
  }
  void glGenTextures(GLsizei count, GLuint* textures) override { call(epoxy_glGenTextures, count, textures); }
  void glDeleteTextures(GLsizei count, const GLuint* textures) override {
    call(epoxy_glDeleteTextures, count, textures);
  }
  void glActiveTexture(GLenum unit) override { call(epoxy_glActiveTexture, unit); }
  void glBindTexture(GLenum target, GLuint texture) override { call(epoxy_glBindTexture, target, texture); }
  void glTexParameteri(GLenum target, GLenum name, GLint value) override {
    call(epoxy_glTexParameteri, target, name, value);
  }
  void glPixelStorei(GLenum name, GLint value) override { call(epoxy_glPixelStorei, name, value); }
  void glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
                    GLint border, GLenum format, GLenum type, const void* pixels) override {
    call(epoxy_glTexImage2D, target, level, internalFormat, width, height, border, format, type, pixels);
  }
  void glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                       GLenum format, GLenum type, const void* pixels) override {
    call(epoxy_glTexSubImage2D, target, level, x, y, width, height, format, type, pixels);
  }
  void glGenFramebuffers(GLsizei count, GLuint* framebuffers) override {
    call(epoxy_glGenFramebuffers, count, framebuffers);
  }
  void glDeleteFramebuffers(GLsizei count, const GLuint* framebuffers) override {
    call(epoxy_glDeleteFramebuffers, count, framebuffers);
  }
  void glBindFramebuffer(GLenum target, GLuint framebuffer) override {
    call(epoxy_glBindFramebuffer, target, framebuffer);
  }
  void glFramebufferTexture2D(GLenum target, GLenum attachment, GLenum textureTarget, GLuint texture,
                              GLint level) override {
    call(epoxy_glFramebufferTexture2D, target, attachment, textureTarget, texture, level);
  }
  GLenum glCheckFramebufferStatus(GLenum target) override {
    return call(epoxy_glCheckFramebufferStatus, target);
  }
  GLuint glCreateShader(GLenum type) override { return call(epoxy_glCreateShader, type); }
  void glDeleteShader(GLuint shader) override { call(epoxy_glDeleteShader, shader); }
  void glShaderSource(GLuint shader, GLsizei count, const GLchar* const* texts,
                      const GLint* lengths) override {
    call(epoxy_glShaderSource, shader, count, texts, lengths);
  }
  void glCompileShader(GLuint shader) override { call(epoxy_glCompileShader, shader); }
  void glGetShaderiv(GLuint shader, GLenum name, GLint* value) override {
    call(epoxy_glGetShaderiv, shader, name, value);
  }
  void glGetShaderInfoLog(GLuint shader, GLsizei size, GLsizei* length, GLchar* text) override {
    call(epoxy_glGetShaderInfoLog, shader, size, length, text);
  }
  GLuint glCreateProgram() override { return call(epoxy_glCreateProgram); }
  void glDeleteProgram(GLuint program) override { call(epoxy_glDeleteProgram, program); }
  void glAttachShader(GLuint program, GLuint shader) override { call(epoxy_glAttachShader, program, shader); }
  void glDetachShader(GLuint program, GLuint shader) override { call(epoxy_glDetachShader, program, shader); }
  void glLinkProgram(GLuint program) override { call(epoxy_glLinkProgram, program); }
  void glValidateProgram(GLuint program) override { call(epoxy_glValidateProgram, program); }
  void glGetProgramiv(GLuint program, GLenum name, GLint* value) override {
    call(epoxy_glGetProgramiv, program, name, value);
  }
  void glGetProgramInfoLog(GLuint program, GLsizei size, GLsizei* length, GLchar* text) override {
    call(epoxy_glGetProgramInfoLog, program, size, length, text);
  }
  void glUseProgram(GLuint program) override { call(epoxy_glUseProgram, program); }
  GLint glGetAttribLocation(GLuint program, const GLchar* name) override {
    return call(epoxy_glGetAttribLocation, program, name);
  }
  GLint glGetUniformLocation(GLuint program, const GLchar* name) override {
    return call(epoxy_glGetUniformLocation, program, name);
  }
  void glUniform1i(GLint location, GLint value) override { call(epoxy_glUniform1i, location, value); }
  void glUniform2f(GLint location, GLfloat x, GLfloat y) override { call(epoxy_glUniform2f, location, x, y); }
  void glUniformMatrix4fv(GLint location, GLsizei count, GLboolean transpose, const GLfloat* value) override {
    call(epoxy_glUniformMatrix4fv, location, count, transpose, value);
  }
  void glGenVertexArrays(GLsizei count, GLuint* arrays) override {
    call(epoxy_glGenVertexArrays, count, arrays);
  }
  void glDeleteVertexArrays(GLsizei count, const GLuint* arrays) override {
    call(epoxy_glDeleteVertexArrays, count, arrays);
  }
  void glBindVertexArray(GLuint array) override { call(epoxy_glBindVertexArray, array); }
  void glGenBuffers(GLsizei count, GLuint* buffers) override { call(epoxy_glGenBuffers, count, buffers); }
  void glDeleteBuffers(GLsizei count, const GLuint* buffers) override {
    call(epoxy_glDeleteBuffers, count, buffers);
  }
  void glBindBuffer(GLenum target, GLuint buffer) override { call(epoxy_glBindBuffer, target, buffer); }
  void glBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) override {
    call(epoxy_glBufferData, target, size, data, usage);
  }
  void glEnableVertexAttribArray(GLuint index) override { call(epoxy_glEnableVertexAttribArray, index); }
  void glVertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized, GLsizei stride,
                             const void* offset) override {
    call(epoxy_glVertexAttribPointer, index, size, type, normalized, stride, offset);
  }
};

}  // namespace

std::unique_ptr<OpenGLFunctions> makeEpoxyFunctions() { return std::make_unique<EpoxyFunctions>(); }

}  // namespace QelUtilVideo
