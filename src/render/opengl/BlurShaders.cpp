#include "render/opengl/BlurShaders.h"

#include "render/opengl/BlurKernel.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>

namespace QelUtilVideo::opengl {

namespace {

constexpr std::size_t mostInterpolatedPairs = 7;

std::size_t interpolatedPairs(const BlurKernel& kernel) {
  return std::min(kernel.pairs.size(), mostInterpolatedPairs);
}

/// The shortest text that reads back to the same number, whatever the locale.
template <class Number>
std::string text(Number number) {
  std::array<char, 32> characters{};
  const auto end = std::to_chars(characters.data(), characters.data() + characters.size(), number).ptr;
  return {characters.data(), end};
}

/// Element of the coordinates that the vertex shader hands on: the centre, then each pair's two sides.
std::string coordinate(std::size_t index) { return "blurCoordinates[" + text(index) + "]"; }

std::string coordinateCount(const BlurKernel& kernel) { return text(2 * interpolatedPairs(kernel) + 1); }

std::string addSample(const std::string& position, double weight) {
  return "sum += texture(inputTexture, " + position + ") * " + text(weight) + ";";
}

}  // namespace

std::string blurVertexShaderSource(const BlurKernel& kernel) {
  std::string source =
      "#version 150\n"
      "uniform vec2 texelSize;\n"
      "uniform mat4 transform;\n"
      "in vec2 position;\n"
      "in vec2 texcoord;\n"
      "out vec2 blurCoordinates[" +
      coordinateCount(kernel) +
      "];\n"
      "void main()\n"
      "{\n"
      "gl_Position = transform * vec4(position, 0, 1);"
      "blurCoordinates[0] = texcoord.xy;\n";
  for (std::size_t pair = 0; pair < interpolatedPairs(kernel); ++pair) {
    const std::string step = "texelSize * " + text(kernel.pairs[pair].offset) + ";\n";
    source += coordinate(2 * pair + 1) + " = texcoord.xy + " + step;
    source += coordinate(2 * pair + 2) + " = texcoord.xy - " + step;
  }
  return source + "}\n";
}

std::string blurFragmentShaderSource(const BlurKernel& kernel) {
  std::string source =
      "#version 150\n"
      "uniform sampler2D inputTexture;\n"
      "uniform vec2 texelSize;\n"
      "in vec2 blurCoordinates[" +
      coordinateCount(kernel) +
      "];\n"
      "out vec4 fragColor;\n"
      "void main()\n"
      "{\n"
      "vec4 sum = vec4(0.0);\n" +
      addSample(coordinate(0), kernel.centerWeight);
  for (std::size_t pair = 0; pair < kernel.pairs.size(); ++pair) {
    const auto& [offset, weight] = kernel.pairs[pair];
    const bool interpolated = pair < interpolatedPairs(kernel);
    const std::string step = "texelSize * " + text(offset);
    source +=
        addSample(interpolated ? coordinate(2 * pair + 1) : coordinate(0) + " + " + step, weight) + "\n";
    source +=
        addSample(interpolated ? coordinate(2 * pair + 2) : coordinate(0) + " - " + step, weight) + "\n";
  }
  return source + "fragColor = sum;\n}\n";
}

}  // namespace QelUtilVideo::opengl
