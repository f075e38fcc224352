#pragma once

#include "render/opengl/GL.h"

namespace QelUtilVideo::opengl {

/// Makes a texture unit, counted from 0, the active one and binds the texture to it.
void bindToUnit(const GL& gl, GLuint unit, GLuint texture);

/// The same, and has the texture sampled linearly and clamped to its edge.
void bindClampedToUnit(const GL& gl, GLuint unit, GLuint texture);

}  // namespace QelUtilVideo::opengl
