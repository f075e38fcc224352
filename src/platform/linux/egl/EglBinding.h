#pragma once

#include <epoxy/egl.h>

#include <string>

namespace QelUtilVideo {

/// What EGL has current on a thread, kept while something else is and put back afterwards: a host may
/// well draw with contexts of its own on the same thread.
struct EglBinding {
  EGLenum api = EGL_OPENGL_API;
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;
  EGLSurface drawSurface = EGL_NO_SURFACE;
  EGLSurface readSurface = EGL_NO_SURFACE;

  /// The calling thread's binding.
  [[nodiscard]] static EglBinding current();
  /// Makes it the calling thread's again, in place of one on `instead`.
  void restore(EGLDisplay instead) const;
};

/// The name of an EGL error code, as the manual has it.
[[nodiscard]] std::string eglErrorName(EGLint code);

}  // namespace QelUtilVideo
