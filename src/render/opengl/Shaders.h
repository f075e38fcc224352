#pragma once

#include <string_view>

namespace QelUtilVideo::opengl {

/// Places the quad and hands its texture coordinates on.
inline constexpr std::string_view vertexShaderSource =
    "#version 150\n"
    "uniform mat4 transform;\n"
    "in vec2 position;\n"
    "in vec2 texcoord;\n"
    "out vec2 texcoordVarying;\n"
    "void main()\n"
    "{\n"
    "    texcoordVarying = texcoord;\n"
    "    gl_Position = transform * vec4(position, 0, 1);\n"
    "}";

/// Video-range BT.601 to RGB: luma from the red channel of one texture, Cb and Cr from the red and
/// green channels of the other.
inline constexpr std::string_view fragmentShaderSource =
    "#version 150\n"
    "uniform sampler2D textureY;\n"
    "uniform sampler2D textureUV;\n"
    "in vec2 texcoordVarying;\n"
    "out vec4 fragColor;\n"
    "void main()\n"
    "{\n"
    "    vec3 yuv;\n"
    "    vec3 rgb;\n"
    "    yuv.x  = texture(textureY, texcoordVarying).r;\n"
    "    yuv.x  = 1.1643 * (yuv.x - 0.0625);\n"
    "    yuv.yz = texture(textureUV, texcoordVarying).rg - vec2(0.5, 0.5);\n"
    "    rgb = mat3(1,      1,        1,\n"
    "               0,      -0.39173, 2.017,\n"
    "               1.5958, -0.81290, 0) * yuv;\n"
    "    fragColor = vec4(rgb, 1);\n"
    "}";

}  // namespace QelUtilVideo::opengl
