#pragma once

#include "render/GeometryArithmetic.h"
#include "render/opengl/GL.h"

#include <array>
#include <optional>
#include <string>

namespace QelUtilVideo::opengl {

/// A shader program that draws one textured quad: four corners of x, y, u, v floats as a triangle
/// strip, taken to clip space by the uniform "transform". Its GL objects live from `prepare` to
/// `release`. A program that does not compile or link is logged and still used; it draws nothing.
///
///     program.prepare();
///     program.setup();
///     program.use();
///     program.setVertices(vertices);
///     program.setTransform(transform);
///     program.draw();                    // as often as needed
///     program.release();
class Program {
 public:
  explicit Program(GL gl);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Makes the GL objects, forgetting those of a context that is gone. With `shared`, the program
  /// takes that one's shaders, and neither compiles nor deletes them.
  void prepare(const Program* shared = nullptr);
  /// Compiles the sources (absent: the default ones) and links. May be called again.
  void setup(const std::optional<std::string>& vertexSource = std::nullopt,
             const std::optional<std::string>& fragmentSource = std::nullopt);
  /// Makes the program current; answers whether OpenGL took it.
  bool use() const;
  void setVertices(const std::array<float, 16>& vertices) const;
  /// The program must be in use.
  void setTransform(const Transform& transform) const;
  /// The program must be in use.
  void draw() const;
  void release();

  /// The GL name, 0 before `prepare`.
  [[nodiscard]] GLuint name() const { return program_; }

 private:
  void compile(GLuint shader, const std::string& source) const;
  void link();
  void enableAttribute(GLint location, std::size_t offset) const;
  [[nodiscard]] std::string shaderInfoLog(GLuint shader) const;
  [[nodiscard]] std::string programInfoLog() const;

  GL gl_;
  GLuint program_ = 0;
  GLuint vertexShader_ = 0;
  GLuint fragmentShader_ = 0;
  bool referencedShaders_ = false;
  GLuint vertexArray_ = 0;
  GLuint vertexBuffer_ = 0;
  GLint positionLocation_ = -1;
  GLint texcoordLocation_ = -1;
  GLint transformLocation_ = -1;
  std::string vertexShaderSource_;
  std::string fragmentShaderSource_;
};

}  // namespace QelUtilVideo::opengl
