#pragma once

#include "platform/OpenGLFunctions.h"
#include "platform/Synchronised.h"

#include <cstdint>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// OpenGL that draws nothing and remembers everything, and reads each byte that it is given to upload, so
/// that sanitizers see what a GPU would read. Each call becomes a short text with its numbers
/// in decimal and without its pointers, "glTexSubImage2D(3553,0,0,0,640,360,6403,5121)",
/// "glGetUniformLocation(3,transform)", "glGenTextures(2)". Names are handed out from 1 upward, one row
/// for all kinds of object. Scripts are set before use; the record may be read on any thread.
class RecordingGL final : public OpenGLFunctions {
 public:
  // ── What happened ─────────────────────────────────────────────────────────────────────────────────
  /// The calls so far, `glGetError` left out.
  [[nodiscard]] std::vector<std::string> calls() const;
  /// The same with "glGetError" where it was called.
  [[nodiscard]] std::vector<std::string> allCalls() const;
  /// How many of `calls()` begin with this text ("glTexImage2D", "glBindTexture(3553,1)").
  [[nodiscard]] std::size_t count(const std::string& prefix) const;
  /// Forgets the record; scripts, names and sources stay.
  void clear();
  /// The text given to `glShaderSource`; empty for a shader without one.
  [[nodiscard]] std::string shaderSource(GLuint shader) const { return record_.copy().sources[shader]; }
  /// What the last `glBufferData` carried.
  [[nodiscard]] std::vector<float> lastBufferData() const { return record_.copy().bufferData; }
  /// The four components given to the last `glClearColor`.
  [[nodiscard]] std::vector<float> clearColor() const { return record_.copy().clearColor; }

  // ── Scripts ───────────────────────────────────────────────────────────────────────────────────────
  /// The first `glGetError` after the next call that begins with `prefix` answers `code`.
  void errorAfter(const std::string& prefix, GLenum code);
  GLint compileStatus = 1;
  GLint linkStatus = 1;
  GLint validateStatus = 1;
  GLenum framebufferStatus = GL_FRAMEBUFFER_COMPLETE;
  std::string shaderInfoLog;  ///< its length is reported with the terminating zero; empty: 0
  /// Attributes and uniforms by name; any other name is at -1.
  std::map<std::string, GLint> locations{{"position", 0},    {"texcoord", 1},  {"transform", 2},
                                         {"textureY", 3},    {"textureUV", 4}, {"texelSize", 5},
                                         {"inputTexture", 6}};
  /// Called with each call's text, `glGetError` included, before it is recorded.
  std::function<void(const std::string& call)> beforeCall;

  // ── OpenGLFunctions ───────────────────────────────────────────────────────────────────────────────
  GLenum glGetError() override;
  void glGetIntegerv(GLenum name, GLint* value) override { note("glGetIntegerv", name), *value = 7; }
  void glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) override;
  void glClear(GLbitfield mask) override { note("glClear", mask); }
  void glViewport(GLint x, GLint y, GLsizei w, GLsizei h) override { note("glViewport", x, y, w, h); }
  void glDrawArrays(GLenum mode, GLint first, GLsizei n) override { note("glDrawArrays", mode, first, n); }
  void glGenTextures(GLsizei n, GLuint* names) override { generate("glGenTextures", n, names); }
  void glDeleteTextures(GLsizei n, const GLuint*) override { note("glDeleteTextures", n); }
  void glActiveTexture(GLenum unit) override { note("glActiveTexture", unit); }
  void glBindTexture(GLenum target, GLuint name) override { note("glBindTexture", target, name); }
  void glTexParameteri(GLenum target, GLenum name, GLint value) override {
    note("glTexParameteri", target, name, value);
  }
  void glPixelStorei(GLenum name, GLint value) override;
  void glTexImage2D(GLenum target, GLint level, GLint internal, GLsizei width, GLsizei height, GLint border,
                    GLenum format, GLenum type, const void* pixels) override {
    note("glTexImage2D", target, level, internal, width, height, border, format, type);
    readTexels(width, height, format, pixels);
  }
  void glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                       GLenum format, GLenum type, const void* pixels) override {
    note("glTexSubImage2D", target, level, x, y, width, height, format, type);
    readTexels(width, height, format, pixels);
  }
  void glGenFramebuffers(GLsizei n, GLuint* names) override { generate("glGenFramebuffers", n, names); }
  void glDeleteFramebuffers(GLsizei n, const GLuint*) override { note("glDeleteFramebuffers", n); }
  void glBindFramebuffer(GLenum target, GLuint name) override { note("glBindFramebuffer", target, name); }
  void glFramebufferTexture2D(GLenum target, GLenum attachment, GLenum textureTarget, GLuint texture,
                              GLint level) override {
    note("glFramebufferTexture2D", target, attachment, textureTarget, texture, level);
  }
  GLenum glCheckFramebufferStatus(GLenum target) override {
    note("glCheckFramebufferStatus", target);
    return framebufferStatus;
  }
  GLuint glCreateShader(GLenum type) override { return create("glCreateShader", type); }
  void glDeleteShader(GLuint shader) override { note("glDeleteShader", shader); }
  void glShaderSource(GLuint shader, GLsizei n, const GLchar* const* texts, const GLint* lengths) override;
  void glCompileShader(GLuint shader) override { note("glCompileShader", shader); }
  void glGetShaderiv(GLuint shader, GLenum name, GLint* value) override;
  void glGetShaderInfoLog(GLuint shader, GLsizei size, GLsizei* length, GLchar* text) override;
  GLuint glCreateProgram() override { return create("glCreateProgram"); }
  void glDeleteProgram(GLuint program) override { note("glDeleteProgram", program); }
  void glAttachShader(GLuint program, GLuint shader) override { note("glAttachShader", program, shader); }
  void glDetachShader(GLuint program, GLuint shader) override { note("glDetachShader", program, shader); }
  void glLinkProgram(GLuint program) override { note("glLinkProgram", program); }
  void glValidateProgram(GLuint program) override { note("glValidateProgram", program); }
  void glGetProgramiv(GLuint program, GLenum name, GLint* value) override;
  void glGetProgramInfoLog(GLuint program, GLsizei size, GLsizei*, GLchar*) override {
    note("glGetProgramInfoLog", program, size);
  }
  void glUseProgram(GLuint program) override { note("glUseProgram", program); }
  GLint glGetAttribLocation(GLuint program, const GLchar* name) override;
  GLint glGetUniformLocation(GLuint program, const GLchar* name) override;
  void glUniform1i(GLint location, GLint value) override { note("glUniform1i", location, value); }
  void glUniform2f(GLint location, GLfloat x, GLfloat y) override { note("glUniform2f", location, x, y); }
  void glUniformMatrix4fv(GLint location, GLsizei n, GLboolean transpose, const GLfloat*) override {
    note("glUniformMatrix4fv", location, n, int{transpose});
  }
  void glGenVertexArrays(GLsizei n, GLuint* names) override { generate("glGenVertexArrays", n, names); }
  void glDeleteVertexArrays(GLsizei n, const GLuint*) override { note("glDeleteVertexArrays", n); }
  void glBindVertexArray(GLuint array) override { note("glBindVertexArray", array); }
  void glGenBuffers(GLsizei n, GLuint* names) override { generate("glGenBuffers", n, names); }
  void glDeleteBuffers(GLsizei n, const GLuint*) override { note("glDeleteBuffers", n); }
  void glBindBuffer(GLenum target, GLuint buffer) override { note("glBindBuffer", target, buffer); }
  void glBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) override;
  void glEnableVertexAttribArray(GLuint index) override { note("glEnableVertexAttribArray", index); }
  void glVertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized, GLsizei stride,
                             const void* offset) override {
    // The offset is a number in the guise of a pointer.
    note("glVertexAttribPointer", index, size, type, int{normalized}, stride,
         reinterpret_cast<std::uintptr_t>(offset));
  }

 private:
  struct Record {
    std::vector<std::string> calls;
    std::map<GLuint, std::string> sources;
    std::vector<float> bufferData;
    std::vector<float> clearColor{0, 0, 0, 0};
    GLint unpackRowLength = 0;
    std::uint64_t texels = 0;  ///< their sum, which keeps the reading of them from being left out
    GLuint nextName = 1;
    std::multimap<std::string, GLenum> errorsByCall;
    std::vector<GLenum> pendingErrors;
  };

  void record(const std::string& call);
  void generate(const char* function, GLsizei count, GLuint* names);
  /// `GL_RED` or `GL_RG`, bytes.
  void readTexels(GLsizei width, GLsizei height, GLenum format, const void* pixels);

  template <class... Arguments>
  void note(const char* function, const Arguments&... arguments) {
    std::ostringstream text;
    [[maybe_unused]] const char* separator = "";
    text << function << '(';
    ((text << separator << arguments, separator = ","), ...);
    text << ')';
    record(text.str());
  }
  template <class... Arguments>
  GLuint create(const char* function, const Arguments&... arguments) {
    note(function, arguments...);
    return record_.with([](Record& record) { return record.nextName++; });
  }

  Synchronised<Record> record_;
};

}  // namespace QelUtilVideo
