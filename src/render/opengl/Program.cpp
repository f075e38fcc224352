#include "render/opengl/Program.h"

#include "log/Log.h"
#include "render/opengl/Shaders.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace QelUtilVideo::opengl {

namespace {

constexpr GLsizei vertexStride = 4 * sizeof(float);
constexpr std::size_t texcoordOffset = 2 * sizeof(float);

/// Offsets into the bound buffer travel in a pointer.
const void* bufferOffset(std::size_t offset) { return reinterpret_cast<const void*>(offset); }

/// The text of an info log of `length` bytes, which `fetch` writes.
template <class Fetch>
std::string infoLogText(GLint length, Fetch&& fetch) {
  if (length < 1) return "n/a";
  std::vector<GLchar> text(static_cast<std::size_t>(length), '\0');
  fetch(text.data());
  text.back() = '\0';
  return text.data();
}

}  // namespace

Program::Program(GL gl)
    : gl_(std::move(gl)),
      vertexShaderSource_(opengl::vertexShaderSource),
      fragmentShaderSource_(opengl::fragmentShaderSource) {}

void Program::prepare(const Program* shared) {
  positionLocation_ = texcoordLocation_ = transformLocation_ = -1;
  referencedShaders_ = shared != nullptr;
  OpenGLFunctions& functions = gl_.functions();
  vertexShader_ = shared ? shared->vertexShader_ : functions.glCreateShader(GL_VERTEX_SHADER);
  fragmentShader_ = shared ? shared->fragmentShader_ : functions.glCreateShader(GL_FRAGMENT_SHADER);
  program_ = functions.glCreateProgram();
  gl_.checked()->glAttachShader(program_, vertexShader_);
  gl_.checked()->glAttachShader(program_, fragmentShader_);
  gl_.checked()->glGenVertexArrays(1, &vertexArray_);
  gl_.checked()->glGenBuffers(1, &vertexBuffer_);
}

void Program::setup(const std::optional<std::string>& vertexSource,
                    const std::optional<std::string>& fragmentSource) {
  if (!referencedShaders_) {
    compile(vertexShader_, vertexSource.value_or(vertexShaderSource_));
    compile(fragmentShader_, fragmentSource.value_or(fragmentShaderSource_));
  }
  link();
}

bool Program::use() const {
  gl_.functions().glUseProgram(program_);
  return gl_.noError();
}

void Program::setVertices(const std::array<float, 16>& vertices) const {
  gl_.checked()->glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer_);
  gl_.checked()->glBufferData(GL_ARRAY_BUFFER, sizeof vertices, vertices.data(), GL_STATIC_DRAW);
}

void Program::setTransform(const Transform& transform) const {
  gl_.checked()->glUniformMatrix4fv(transformLocation_, 1, GL_FALSE, transform.data());
}

void Program::draw() const {
  gl_.checked()->glBindVertexArray(vertexArray_);
  gl_.checked()->glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
  gl_.checked()->glBindVertexArray(0);
}

void Program::release() {
  gl_.checked()->glDetachShader(program_, vertexShader_);
  gl_.checked()->glDetachShader(program_, fragmentShader_);
  if (!referencedShaders_) {
    gl_.checked()->glDeleteShader(vertexShader_);
    gl_.checked()->glDeleteShader(fragmentShader_);
  }
  gl_.checked()->glDeleteProgram(program_);
  gl_.checked()->glDeleteVertexArrays(1, &vertexArray_);
  gl_.checked()->glDeleteBuffers(1, &vertexBuffer_);
  program_ = vertexShader_ = fragmentShader_ = vertexArray_ = vertexBuffer_ = 0;
}

GLint Program::uniformLocation(const char* name) const {
  return gl_.functions().glGetUniformLocation(program_, name);
}

void Program::compile(GLuint shader, const std::string& source) const {
  const GLchar* text = source.c_str();
  gl_.checked()->glShaderSource(shader, 1, &text, nullptr);
  gl_.checked()->glCompileShader(shader);
  GLint status = 0;
  gl_.checked()->glGetShaderiv(shader, GL_COMPILE_STATUS, &status);
  if (status != 1) {
    log(LogLevel::error, gl_.logName() + " shader compile error: " + shaderInfoLog(shader));
  }
}

void Program::link() {
  gl_.checked()->glBindVertexArray(vertexArray_);
  gl_.checked()->glBindBuffer(GL_ARRAY_BUFFER, vertexBuffer_);
  gl_.checked()->glLinkProgram(program_);
  GLint status = 0;
  gl_.checked()->glGetProgramiv(program_, GL_LINK_STATUS, &status);
  if (status != 1) log(LogLevel::error, gl_.logName() + " program link error: " + programInfoLog());
  gl_.checked()->glValidateProgram(program_);
  status = 0;
  gl_.checked()->glGetProgramiv(program_, GL_VALIDATE_STATUS, &status);
  if (status != 1) log(LogLevel::error, gl_.logName() + " program validate error: " + programInfoLog());

  OpenGLFunctions& functions = gl_.functions();
  positionLocation_ = functions.glGetAttribLocation(program_, "position");
  texcoordLocation_ = functions.glGetAttribLocation(program_, "texcoord");
  transformLocation_ = uniformLocation("transform");
  enableAttribute(positionLocation_, 0);
  enableAttribute(texcoordLocation_, texcoordOffset);
  gl_.checked()->glBindVertexArray(0);
}

void Program::enableAttribute(GLint location, std::size_t offset) const {
  // A program that did not link has no attributes.
  if (location < 0) return;
  const auto index = static_cast<GLuint>(location);
  gl_.checked()->glEnableVertexAttribArray(index);
  gl_.checked()->glVertexAttribPointer(index, 2, GL_FLOAT, GL_FALSE, vertexStride, bufferOffset(offset));
}

std::string Program::shaderInfoLog(GLuint shader) const {
  GLint length = 0;
  gl_.checked()->glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
  return infoLogText(length,
                     [&](GLchar* text) { gl_.checked()->glGetShaderInfoLog(shader, length, nullptr, text); });
}

std::string Program::programInfoLog() const {
  GLint length = 0;
  gl_.checked()->glGetProgramiv(program_, GL_INFO_LOG_LENGTH, &length);
  return infoLogText(
      length, [&](GLchar* text) { gl_.checked()->glGetProgramInfoLog(program_, length, nullptr, text); });
}

}  // namespace QelUtilVideo::opengl
