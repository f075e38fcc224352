#include "support/simulated/RecordingGL.h"

#include <algorithm>
#include <numeric>

namespace QelUtilVideo {

void RecordingGL::record(const std::string& call) {
  if (beforeCall) beforeCall(call);
  record_.with([&](Record& record) {
    record.calls.push_back(call);
    const auto error = std::ranges::find_if(record.errorsByCall,
                                            [&](const auto& entry) { return call.starts_with(entry.first); });
    if (error == record.errorsByCall.end()) return;
    record.pendingErrors.push_back(error->second);
    record.errorsByCall.erase(error);
  });
}

void RecordingGL::generate(const char* function, GLsizei count, GLuint* names) {
  note(function, count);
  record_.with([&](Record& record) {
    for (GLsizei index = 0; index < count; ++index) names[index] = record.nextName++;
  });
}

void RecordingGL::readTexels(GLsizei width, GLsizei height, GLenum format, const void* pixels) {
  const auto* bytes = static_cast<const std::uint8_t*>(pixels);
  if (!bytes) return;
  const GLint bytesPerTexel = format == GL_RG ? 2 : 1;
  record_.with([&](Record& record) {
    const GLint texelsPerRow = record.unpackRowLength > 0 ? record.unpackRowLength : width;
    for (GLsizei row = 0; row < height; ++row, bytes += texelsPerRow * bytesPerTexel) {
      record.texels = std::accumulate(bytes, bytes + width * bytesPerTexel, record.texels);
    }
  });
}

std::vector<std::string> RecordingGL::calls() const {
  auto calls = allCalls();
  std::erase(calls, "glGetError");
  return calls;
}

std::vector<std::string> RecordingGL::allCalls() const { return record_.copy().calls; }

std::size_t RecordingGL::count(const std::string& prefix) const {
  return static_cast<std::size_t>(
      std::ranges::count_if(calls(), [&](const std::string& call) { return call.starts_with(prefix); }));
}

void RecordingGL::clear() {
  record_.with([](Record& record) { record.calls.clear(); });
}

void RecordingGL::errorAfter(const std::string& prefix, GLenum code) {
  record_.with([&](Record& record) { record.errorsByCall.emplace(prefix, code); });
}

GLenum RecordingGL::glGetError() {
  record("glGetError");
  return record_.with([](Record& record) -> GLenum {
    if (record.pendingErrors.empty()) return GL_NO_ERROR;
    const GLenum code = record.pendingErrors.front();
    record.pendingErrors.erase(record.pendingErrors.begin());
    return code;
  });
}

void RecordingGL::glPixelStorei(GLenum name, GLint value) {
  note("glPixelStorei", name, value);
  if (name == GL_UNPACK_ROW_LENGTH) record_.with([&](Record& record) { record.unpackRowLength = value; });
}

void RecordingGL::glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) {
  note("glClearColor", r, g, b, a);
  record_.with([&](Record& record) { record.clearColor = {r, g, b, a}; });
}

void RecordingGL::glShaderSource(GLuint shader, GLsizei n, const GLchar* const* texts, const GLint*) {
  note("glShaderSource", shader, n);
  record_.with([&](Record& record) {
    std::string& source = record.sources[shader] = "";
    for (GLsizei index = 0; index < n; ++index) source += texts[index];
  });
}

void RecordingGL::glGetShaderiv(GLuint shader, GLenum name, GLint* value) {
  note("glGetShaderiv", shader, name);
  const auto length = static_cast<GLint>(shaderInfoLog.empty() ? 0 : shaderInfoLog.size() + 1);
  *value = name == GL_COMPILE_STATUS ? compileStatus : length;
}

void RecordingGL::glGetShaderInfoLog(GLuint shader, GLsizei size, GLsizei* length, GLchar* text) {
  note("glGetShaderInfoLog", shader, size);
  const std::size_t copied = shaderInfoLog.copy(text, static_cast<std::size_t>(std::max(size, 1) - 1));
  if (size > 0) text[copied] = '\0';
  if (length) *length = static_cast<GLsizei>(copied);
}

void RecordingGL::glGetProgramiv(GLuint program, GLenum name, GLint* value) {
  note("glGetProgramiv", program, name);
  *value = name == GL_LINK_STATUS ? linkStatus : name == GL_VALIDATE_STATUS ? validateStatus : 0;
}

GLint RecordingGL::glGetAttribLocation(GLuint program, const GLchar* name) {
  note("glGetAttribLocation", program, name);
  return locations.contains(name) ? locations.at(name) : -1;
}

GLint RecordingGL::glGetUniformLocation(GLuint program, const GLchar* name) {
  note("glGetUniformLocation", program, name);
  return locations.contains(name) ? locations.at(name) : -1;
}

void RecordingGL::glBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) {
  note("glBufferData", target, size, usage);
  const auto* floats = static_cast<const float*>(data);
  record_.with([&](Record& record) {
    record.bufferData.assign(floats, floats + size / static_cast<GLsizeiptr>(sizeof(float)));
  });
}

}  // namespace QelUtilVideo
