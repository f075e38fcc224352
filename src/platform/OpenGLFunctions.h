#pragma once

#include <cstddef>
#include <cstdint>

namespace QelUtilVideo {

using GLenum = std::uint32_t;
using GLuint = std::uint32_t;
using GLint = std::int32_t;
using GLsizei = std::int32_t;
using GLbitfield = std::uint32_t;
using GLfloat = float;
using GLboolean = unsigned char;
using GLchar = char;
using GLsizeiptr = std::ptrdiff_t;

inline constexpr GLboolean GL_FALSE = 0;
inline constexpr GLenum GL_NO_ERROR = 0;
inline constexpr GLenum GL_TRIANGLE_STRIP = 0x0005;
inline constexpr GLenum GL_TEXTURE_2D = 0x0DE1;
inline constexpr GLenum GL_UNPACK_ROW_LENGTH = 0x0CF2;
inline constexpr GLenum GL_UNPACK_ALIGNMENT = 0x0CF5;
inline constexpr GLenum GL_UNSIGNED_BYTE = 0x1401;
inline constexpr GLenum GL_FLOAT = 0x1406;
inline constexpr GLenum GL_RED = 0x1903;
inline constexpr GLenum GL_RGBA = 0x1908;
inline constexpr GLenum GL_LINEAR = 0x2601;
inline constexpr GLenum GL_TEXTURE_MAG_FILTER = 0x2800;
inline constexpr GLenum GL_TEXTURE_MIN_FILTER = 0x2801;
inline constexpr GLenum GL_TEXTURE_WRAP_S = 0x2802;
inline constexpr GLenum GL_TEXTURE_WRAP_T = 0x2803;
inline constexpr GLbitfield GL_COLOR_BUFFER_BIT = 0x00004000;
inline constexpr GLenum GL_CLAMP_TO_EDGE = 0x812F;
inline constexpr GLenum GL_RG = 0x8227;
inline constexpr GLenum GL_TEXTURE0 = 0x84C0;
inline constexpr GLenum GL_ARRAY_BUFFER = 0x8892;
inline constexpr GLenum GL_STATIC_DRAW = 0x88E4;
inline constexpr GLenum GL_FRAGMENT_SHADER = 0x8B30;
inline constexpr GLenum GL_VERTEX_SHADER = 0x8B31;
inline constexpr GLenum GL_COMPILE_STATUS = 0x8B81;
inline constexpr GLenum GL_LINK_STATUS = 0x8B82;
inline constexpr GLenum GL_VALIDATE_STATUS = 0x8B83;
inline constexpr GLenum GL_INFO_LOG_LENGTH = 0x8B84;
inline constexpr GLenum GL_DRAW_FRAMEBUFFER_BINDING = 0x8CA6;
inline constexpr GLenum GL_FRAMEBUFFER_COMPLETE = 0x8CD5;
inline constexpr GLenum GL_COLOR_ATTACHMENT0 = 0x8CE0;
inline constexpr GLenum GL_FRAMEBUFFER = 0x8D40;

/// The OpenGL functions that the library calls, with their standard meaning; a context must be current
/// on the calling thread.
class OpenGLFunctions {
 public:
  virtual ~OpenGLFunctions() = default;

  virtual GLenum glGetError() = 0;
  virtual void glGetIntegerv(GLenum name, GLint* value) = 0;

  virtual void glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) = 0;
  virtual void glClear(GLbitfield mask) = 0;
  virtual void glViewport(GLint x, GLint y, GLsizei width, GLsizei height) = 0;
  virtual void glDrawArrays(GLenum mode, GLint first, GLsizei count) = 0;

  virtual void glGenTextures(GLsizei count, GLuint* textures) = 0;
  virtual void glDeleteTextures(GLsizei count, const GLuint* textures) = 0;
  virtual void glActiveTexture(GLenum unit) = 0;
  virtual void glBindTexture(GLenum target, GLuint texture) = 0;
  virtual void glTexParameteri(GLenum target, GLenum name, GLint value) = 0;
  virtual void glPixelStorei(GLenum name, GLint value) = 0;
  virtual void glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
                            GLint border, GLenum format, GLenum type, const void* pixels) = 0;
  virtual void glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                               GLenum format, GLenum type, const void* pixels) = 0;

  virtual void glGenFramebuffers(GLsizei count, GLuint* framebuffers) = 0;
  virtual void glDeleteFramebuffers(GLsizei count, const GLuint* framebuffers) = 0;
  virtual void glBindFramebuffer(GLenum target, GLuint framebuffer) = 0;
  virtual void glFramebufferTexture2D(GLenum target, GLenum attachment, GLenum textureTarget, GLuint texture,
                                      GLint level) = 0;
  virtual GLenum glCheckFramebufferStatus(GLenum target) = 0;

  virtual GLuint glCreateShader(GLenum type) = 0;
  virtual void glDeleteShader(GLuint shader) = 0;
  virtual void glShaderSource(GLuint shader, GLsizei count, const GLchar* const* texts,
                              const GLint* lengths) = 0;
  virtual void glCompileShader(GLuint shader) = 0;
  virtual void glGetShaderiv(GLuint shader, GLenum name, GLint* value) = 0;
  virtual void glGetShaderInfoLog(GLuint shader, GLsizei size, GLsizei* length, GLchar* text) = 0;

  virtual GLuint glCreateProgram() = 0;
  virtual void glDeleteProgram(GLuint program) = 0;
  virtual void glAttachShader(GLuint program, GLuint shader) = 0;
  virtual void glDetachShader(GLuint program, GLuint shader) = 0;
  virtual void glLinkProgram(GLuint program) = 0;
  virtual void glValidateProgram(GLuint program) = 0;
  virtual void glGetProgramiv(GLuint program, GLenum name, GLint* value) = 0;
  virtual void glGetProgramInfoLog(GLuint program, GLsizei size, GLsizei* length, GLchar* text) = 0;
  virtual void glUseProgram(GLuint program) = 0;
  virtual GLint glGetAttribLocation(GLuint program, const GLchar* name) = 0;
  virtual GLint glGetUniformLocation(GLuint program, const GLchar* name) = 0;
  virtual void glUniform1i(GLint location, GLint value) = 0;
  virtual void glUniform2f(GLint location, GLfloat x, GLfloat y) = 0;
  virtual void glUniformMatrix4fv(GLint location, GLsizei count, GLboolean transpose,
                                  const GLfloat* value) = 0;

  virtual void glGenVertexArrays(GLsizei count, GLuint* arrays) = 0;
  virtual void glDeleteVertexArrays(GLsizei count, const GLuint* arrays) = 0;
  virtual void glBindVertexArray(GLuint array) = 0;
  virtual void glGenBuffers(GLsizei count, GLuint* buffers) = 0;
  virtual void glDeleteBuffers(GLsizei count, const GLuint* buffers) = 0;
  virtual void glBindBuffer(GLenum target, GLuint buffer) = 0;
  virtual void glBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) = 0;
  virtual void glEnableVertexAttribArray(GLuint index) = 0;
  virtual void glVertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized,
                                     GLsizei stride, const void* offset) = 0;
};

}  // namespace QelUtilVideo
