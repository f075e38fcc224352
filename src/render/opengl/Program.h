#pragma once

#include "render/GeometryArithmetic.h"
#include "render/opengl/GL.h"

#include <array>
#include <optional>
#include <string>

namespace QelUtilVideo::opengl {

/// Covers all that is drawn on, as corners of x, y, u, v. Its v axis points up, unlike that of the quads
/// that place a picture: a texture drawn through it keeps the order of its rows.
inline constexpr std::array<float, 16> fullScreenQuad{
    -1, -1, 0, 0,  //
    1,  -1, 1, 0,  //
    -1, 1,  0, 1,  //
    1,  1,  1, 1,
};

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

  /// Where a uniform of the linked program is; -1 when it has none of this name. Not checked.
  [[nodiscard]] GLint uniformLocation(const char* name) const;

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
