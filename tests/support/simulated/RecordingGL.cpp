#include "support/simulated/RecordingGL.h"

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string_view>

namespace QelUtilVideo {

namespace {

constexpr const char* errorQuery = "glGetError";

template <class... Arguments>
std::string callText(const char* name, const Arguments&... arguments) {
  std::ostringstream text;
  text << name << '(';
  [[maybe_unused]] const char* separator = "";
  ((text << separator << arguments, separator = ","), ...);
  text << ')';
  return text.str();
}

void copyLog(const std::string& log, GLsizei size, GLsizei* length, GLchar* text) {
  if (size < 1) return;
  const std::size_t copied = std::min(log.size(), static_cast<std::size_t>(size) - 1);
  std::copy_n(log.data(), copied, text);
  text[copied] = '\0';
  if (length) *length = static_cast<GLsizei>(copied);
}

GLint lengthOf(const std::string& log) { return log.empty() ? 0 : static_cast<GLint>(log.size()) + 1; }

}  // namespace

template <class... Arguments>
void RecordingGL::record(const char* name, const Arguments&... arguments) {
  std::string text = callText(name, arguments...);
  if (beforeCall) beforeCall(text);
  const std::lock_guard lock(mutex_);
  const auto error = std::find_if(record_.errorsByCall.begin(), record_.errorsByCall.end(),
                                  [&](const auto& entry) { return text.starts_with(entry.first); });
  if (error != record_.errorsByCall.end()) {
    record_.pendingErrors.push_back(error->second);
    record_.errorsByCall.erase(error);
  }
  record_.calls.push_back(std::move(text));
}

void RecordingGL::handOut(GLsizei count, GLuint* names) {
  const std::lock_guard lock(mutex_);
  for (GLsizei index = 0; index < count; ++index) names[index] = record_.nextName++;
}

GLint RecordingGL::locationOf(const GLchar* name) const {
  const auto entry = locations.find(name);
  return entry == locations.end() ? -1 : entry->second;
}

// ── What happened ─────────────────────────────────────────────────────────────────────────────────

std::vector<std::string> RecordingGL::calls() const {
  auto calls = allCalls();
  std::erase(calls, errorQuery);
  return calls;
}

std::vector<std::string> RecordingGL::allCalls() const {
  const std::lock_guard lock(mutex_);
  return record_.calls;
}

std::size_t RecordingGL::count(const std::string& prefix) const {
  const auto all = calls();
  return static_cast<std::size_t>(std::count_if(
      all.begin(), all.end(), [&](const std::string& call) { return call.starts_with(prefix); }));
}

void RecordingGL::clear() {
  const std::lock_guard lock(mutex_);
  record_.calls.clear();
}

std::string RecordingGL::shaderSource(GLuint shader) const {
  const std::lock_guard lock(mutex_);
  const auto entry = record_.shaderSources.find(shader);
  return entry == record_.shaderSources.end() ? std::string() : entry->second;
}

std::vector<float> RecordingGL::lastBufferData() const {
  const std::lock_guard lock(mutex_);
  return record_.bufferData;
}

std::vector<float> RecordingGL::lastMatrix() const {
  const std::lock_guard lock(mutex_);
  return record_.matrix;
}

std::vector<float> RecordingGL::clearColor() const {
  const std::lock_guard lock(mutex_);
  return record_.clearColor;
}

// ── Scripts ───────────────────────────────────────────────────────────────────────────────────────

void RecordingGL::errorAt(std::size_t n, GLenum code) {
  const std::lock_guard lock(mutex_);
  record_.errorsByNumber[record_.errorsRead + n] = code;
}

void RecordingGL::errorAfter(std::string prefix, GLenum code) {
  const std::lock_guard lock(mutex_);
  record_.errorsByCall.emplace(std::move(prefix), code);
}

// ── OpenGLFunctions ───────────────────────────────────────────────────────────────────────────────

GLenum RecordingGL::glGetError() {
  if (beforeCall) beforeCall(errorQuery);
  const std::lock_guard lock(mutex_);
  record_.calls.emplace_back(errorQuery);
  record_.errorsRead += 1;
  if (const auto scripted = record_.errorsByNumber.find(record_.errorsRead);
      scripted != record_.errorsByNumber.end()) {
    return scripted->second;
  }
  if (record_.pendingErrors.empty()) return GL_NO_ERROR;
  const GLenum code = record_.pendingErrors.front();
  record_.pendingErrors.erase(record_.pendingErrors.begin());
  return code;
}

void RecordingGL::glGetIntegerv(GLenum name, GLint* value) {
  record("glGetIntegerv", name);
  *value = name == GL_DRAW_FRAMEBUFFER_BINDING ? drawFramebufferBinding : 0;
}

void RecordingGL::glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) {
  record("glClearColor", r, g, b, a);
  const std::lock_guard lock(mutex_);
  record_.clearColor = {r, g, b, a};
}

void RecordingGL::glClear(GLbitfield mask) { record("glClear", mask); }

void RecordingGL::glViewport(GLint x, GLint y, GLsizei width, GLsizei height) {
  record("glViewport", x, y, width, height);
}

void RecordingGL::glDrawArrays(GLenum mode, GLint first, GLsizei count) {
  record("glDrawArrays", mode, first, count);
}

void RecordingGL::glGenTextures(GLsizei count, GLuint* textures) {
  record("glGenTextures", count);
  handOut(count, textures);
}

void RecordingGL::glDeleteTextures(GLsizei count, const GLuint*) { record("glDeleteTextures", count); }

void RecordingGL::glActiveTexture(GLenum unit) { record("glActiveTexture", unit); }

void RecordingGL::glBindTexture(GLenum target, GLuint texture) { record("glBindTexture", target, texture); }

void RecordingGL::glTexParameteri(GLenum target, GLenum name, GLint value) {
  record("glTexParameteri", target, name, value);
}

void RecordingGL::glPixelStorei(GLenum name, GLint value) { record("glPixelStorei", name, value); }

void RecordingGL::glTexImage2D(GLenum target, GLint level, GLint internalFormat, GLsizei width,
                               GLsizei height, GLint border, GLenum format, GLenum type, const void*) {
  record("glTexImage2D", target, level, internalFormat, width, height, border, format, type);
}

void RecordingGL::glTexSubImage2D(GLenum target, GLint level, GLint x, GLint y, GLsizei width, GLsizei height,
                                  GLenum format, GLenum type, const void*) {
  record("glTexSubImage2D", target, level, x, y, width, height, format, type);
}

GLuint RecordingGL::glCreateShader(GLenum type) {
  record("glCreateShader", type);
  GLuint name = 0;
  handOut(1, &name);
  return name;
}

void RecordingGL::glDeleteShader(GLuint shader) { record("glDeleteShader", shader); }

void RecordingGL::glShaderSource(GLuint shader, GLsizei count, const GLchar* const* texts,
                                 const GLint* lengths) {
  record("glShaderSource", shader, count);
  const std::lock_guard lock(mutex_);
  std::string& source = record_.shaderSources[shader];
  source.clear();
  for (GLsizei index = 0; index < count; ++index) {
    const bool measured = lengths && lengths[index] >= 0;
    source += measured ? std::string_view(texts[index], static_cast<std::size_t>(lengths[index]))
                       : std::string_view(texts[index]);
  }
}

void RecordingGL::glCompileShader(GLuint shader) { record("glCompileShader", shader); }

void RecordingGL::glGetShaderiv(GLuint shader, GLenum name, GLint* value) {
  record("glGetShaderiv", shader, name);
  *value = name == GL_COMPILE_STATUS    ? compileStatus
           : name == GL_INFO_LOG_LENGTH ? lengthOf(shaderInfoLog)
                                        : 0;
}

void RecordingGL::glGetShaderInfoLog(GLuint shader, GLsizei size, GLsizei* length, GLchar* text) {
  record("glGetShaderInfoLog", shader, size);
  copyLog(shaderInfoLog, size, length, text);
}

GLuint RecordingGL::glCreateProgram() {
  record("glCreateProgram");
  GLuint name = 0;
  handOut(1, &name);
  return name;
}

void RecordingGL::glDeleteProgram(GLuint program) { record("glDeleteProgram", program); }

void RecordingGL::glAttachShader(GLuint program, GLuint shader) { record("glAttachShader", program, shader); }

void RecordingGL::glDetachShader(GLuint program, GLuint shader) { record("glDetachShader", program, shader); }

void RecordingGL::glLinkProgram(GLuint program) { record("glLinkProgram", program); }

void RecordingGL::glValidateProgram(GLuint program) { record("glValidateProgram", program); }

void RecordingGL::glGetProgramiv(GLuint program, GLenum name, GLint* value) {
  record("glGetProgramiv", program, name);
  switch (name) {
    case GL_LINK_STATUS:
      *value = linkStatus;
      break;
    case GL_VALIDATE_STATUS:
      *value = validateStatus;
      break;
    case GL_INFO_LOG_LENGTH:
      *value = lengthOf(programInfoLog);
      break;
    default:
      *value = 0;
  }
}

void RecordingGL::glGetProgramInfoLog(GLuint program, GLsizei size, GLsizei* length, GLchar* text) {
  record("glGetProgramInfoLog", program, size);
  copyLog(programInfoLog, size, length, text);
}

void RecordingGL::glUseProgram(GLuint program) { record("glUseProgram", program); }

GLint RecordingGL::glGetAttribLocation(GLuint program, const GLchar* name) {
  record("glGetAttribLocation", program, name);
  return locationOf(name);
}

GLint RecordingGL::glGetUniformLocation(GLuint program, const GLchar* name) {
  record("glGetUniformLocation", program, name);
  return locationOf(name);
}

void RecordingGL::glUniform1i(GLint location, GLint value) { record("glUniform1i", location, value); }

void RecordingGL::glUniformMatrix4fv(GLint location, GLsizei count, GLboolean transpose,
                                     const GLfloat* value) {
  record("glUniformMatrix4fv", location, count, int{transpose});
  const std::lock_guard lock(mutex_);
  record_.matrix.assign(value, value + 16 * count);
}

void RecordingGL::glGenVertexArrays(GLsizei count, GLuint* arrays) {
  record("glGenVertexArrays", count);
  handOut(count, arrays);
}

void RecordingGL::glDeleteVertexArrays(GLsizei count, const GLuint*) {
  record("glDeleteVertexArrays", count);
}

void RecordingGL::glBindVertexArray(GLuint array) { record("glBindVertexArray", array); }

void RecordingGL::glGenBuffers(GLsizei count, GLuint* buffers) {
  record("glGenBuffers", count);
  handOut(count, buffers);
}

void RecordingGL::glDeleteBuffers(GLsizei count, const GLuint*) { record("glDeleteBuffers", count); }

void RecordingGL::glBindBuffer(GLenum target, GLuint buffer) { record("glBindBuffer", target, buffer); }

void RecordingGL::glBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) {
  record("glBufferData", target, size, usage);
  const auto* floats = static_cast<const float*>(data);
  const std::lock_guard lock(mutex_);
  record_.bufferData.assign(floats, floats + size / static_cast<GLsizeiptr>(sizeof(float)));
}

void RecordingGL::glEnableVertexAttribArray(GLuint index) { record("glEnableVertexAttribArray", index); }

void RecordingGL::glVertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized,
                                        GLsizei stride, const void* offset) {
  // The offset is a number in the guise of a pointer.
  record("glVertexAttribPointer", index, size, type, int{normalized}, stride,
         reinterpret_cast<std::uintptr_t>(offset));
}

}  // namespace QelUtilVideo
