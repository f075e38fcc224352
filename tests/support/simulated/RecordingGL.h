#pragma once

#include "platform/OpenGLFunctions.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// OpenGL that draws nothing and remembers everything: each call becomes a short text with its numbers
/// in decimal and without its pointers, "glTexSubImage2D(3553,0,0,0,640,360,6403,5121)",
/// "glGetUniformLocation(3,transform)", "glGenTextures(2)". Names are handed out from 1 upward, one row
/// for all kinds of object. Scripts are set before use; the record may be read on any thread.
class RecordingGL final : public OpenGLFunctions {
 public:
  // ── What happened ───────────────────────────────────────────────────────────────────────────────
  /// The calls so far, `glGetError` left out.
  [[nodiscard]] std::vector<std::string> calls() const;
  /// The same with "glGetError" where it was called.
  [[nodiscard]] std::vector<std::string> allCalls() const;
  /// How many of `calls()` begin with this text ("glTexImage2D", "glBindTexture(3553,1)").
  [[nodiscard]] std::size_t count(const std::string& prefix) const;
  /// Forgets the record; scripts, names and sources stay.
  void clear();
  /// The text given to `glShaderSource`; empty for a shader without one.
  [[nodiscard]] std::string shaderSource(GLuint shader) const;
  /// What the last `glBufferData` and the last `glUniformMatrix4fv` carried.
  [[nodiscard]] std::vector<float> lastBufferData() const;
  [[nodiscard]] std::vector<float> lastMatrix() const;
  /// The four components given to the last `glClearColor`.
  [[nodiscard]] std::vector<float> clearColor() const;

  // ── Scripts ─────────────────────────────────────────────────────────────────────────────────────
  /// The n-th `glGetError` from here on (1: the next one) answers `code`.
  void errorAt(std::size_t n, GLenum code);
  /// The first `glGetError` after the next call that begins with `prefix` answers `code`.
  void errorAfter(std::string prefix, GLenum code);
  GLint compileStatus = 1;
  GLint linkStatus = 1;
  GLint validateStatus = 1;
  std::string shaderInfoLog;  ///< its length is reported with the terminating zero; empty: 0
  std::string programInfoLog;
  /// Attributes and uniforms by name; any other name is at -1.
  std::map<std::string, GLint> locations{
      {"position", 0}, {"texcoord", 1}, {"transform", 2}, {"textureY", 3}, {"textureUV", 4}};
  GLint drawFramebufferBinding = 7;  ///< what `glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING)` answers
  /// Called with each call's text, `glGetError` included, before it is recorded.
  std::function<void(const std::string& call)> beforeCall;

  // ── OpenGLFunctions ─────────────────────────────────────────────────────────────────────────────
  GLenum glGetError() override;
  void glGetIntegerv(GLenum name, GLint* value) override;
  void glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) override;
  void glClear(GLbitfield mask) override;
  void glViewport(GLint x, GLint y, GLsizei width, GLsizei height) override;
  void glDrawArrays(GLenum mode, GLint first, GLsizei count) override;
  void glGenTextures(GLsizei count, GLuint* textures) override;
  void glDeleteTextures(GLsizei count, const GLuint* textures) override;
  void glActiveTexture(GLenum unit) override;
  void glBindTexture(GLenum target, GLuint texture) override;
  void glTexParameteri(GLenum target, GLenum name, GLint value) override;
  void glPixelStorei(GLenum name, GLint value) override;
  void glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width, GLsizei height,
                    GLint border, GLenum format, GLenum type, const void* pixels) override;
  void glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                       GLenum format, GLenum type, const void* pixels) override;
  GLuint glCreateShader(GLenum type) override;
  void glDeleteShader(GLuint shader) override;
  void glShaderSource(GLuint shader, GLsizei count, const GLchar* const* texts,
                      const GLint* lengths) override;
  void glCompileShader(GLuint shader) override;
  void glGetShaderiv(GLuint shader, GLenum name, GLint* value) override;
  void glGetShaderInfoLog(GLuint shader, GLsizei size, GLsizei* length, GLchar* text) override;
  GLuint glCreateProgram() override;
  void glDeleteProgram(GLuint program) override;
  void glAttachShader(GLuint program, GLuint shader) override;
  void glDetachShader(GLuint program, GLuint shader) override;
  void glLinkProgram(GLuint program) override;
  void glValidateProgram(GLuint program) override;
  void glGetProgramiv(GLuint program, GLenum name, GLint* value) override;
  void glGetProgramInfoLog(GLuint program, GLsizei size, GLsizei* length, GLchar* text) override;
  void glUseProgram(GLuint program) override;
  GLint glGetAttribLocation(GLuint program, const GLchar* name) override;
  GLint glGetUniformLocation(GLuint program, const GLchar* name) override;
  void glUniform1i(GLint location, GLint value) override;
  void glUniformMatrix4fv(GLint location, GLsizei count, GLboolean transpose, const GLfloat* value) override;
  void glGenVertexArrays(GLsizei count, GLuint* arrays) override;
  void glDeleteVertexArrays(GLsizei count, const GLuint* arrays) override;
  void glBindVertexArray(GLuint array) override;
  void glGenBuffers(GLsizei count, GLuint* buffers) override;
  void glDeleteBuffers(GLsizei count, const GLuint* buffers) override;
  void glBindBuffer(GLenum target, GLuint buffer) override;
  void glBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) override;
  void glEnableVertexAttribArray(GLuint index) override;
  void glVertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized, GLsizei stride,
                             const void* offset) override;

 private:
  struct Record {
    std::vector<std::string> calls;
    std::map<GLuint, std::string> shaderSources;
    std::vector<float> bufferData;
    std::vector<float> matrix;
    std::vector<float> clearColor{0, 0, 0, 0};
    GLuint nextName = 1;
    std::size_t errorsRead = 0;
    std::map<std::size_t, GLenum> errorsByNumber;
    std::multimap<std::string, GLenum> errorsByCall;
    std::vector<GLenum> pendingErrors;
  };

  template <class... Arguments>
  void record(const char* name, const Arguments&... arguments);
  void handOut(GLsizei count, GLuint* names);
  [[nodiscard]] GLint locationOf(const GLchar* name) const;

  mutable std::mutex mutex_;
  Record record_;
};

}  // namespace QelUtilVideo
