#include "platform/linux/egl/EglBinding.h"

#include "platform/linux/core/NoPipeSignal.h"

#include <array>
#include <cstddef>

namespace QelUtilVideo {

EglBinding EglBinding::current() {
  EglBinding binding;
  binding.api = eglQueryAPI();
  binding.display = eglGetCurrentDisplay();
  binding.context = eglGetCurrentContext();
  binding.drawSurface = eglGetCurrentSurface(EGL_DRAW);
  binding.readSurface = eglGetCurrentSurface(EGL_READ);
  return binding;
}

void EglBinding::restore(EGLDisplay instead) const {
  if (context == EGL_NO_CONTEXT) {
    eglMakeCurrent(instead, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
  } else {
    const NoPipeSignal noSignal;  // the window may be on a connection that broke meanwhile
    eglMakeCurrent(display, drawSurface, readSurface, context);
  }
  if (api != EGL_NONE) eglBindAPI(api);
}

std::string eglErrorName(EGLint code) {
  constexpr std::array names{"EGL_SUCCESS",       "EGL_NOT_INITIALIZED",     "EGL_BAD_ACCESS",
                             "EGL_BAD_ALLOC",     "EGL_BAD_ATTRIBUTE",       "EGL_BAD_CONFIG",
                             "EGL_BAD_CONTEXT",   "EGL_BAD_CURRENT_SURFACE", "EGL_BAD_DISPLAY",
                             "EGL_BAD_MATCH",     "EGL_BAD_NATIVE_PIXMAP",   "EGL_BAD_NATIVE_WINDOW",
                             "EGL_BAD_PARAMETER", "EGL_BAD_SURFACE",         "EGL_CONTEXT_LOST"};
  const EGLint index = code - EGL_SUCCESS;
  if (index < 0 || index >= static_cast<EGLint>(names.size())) return "EGL error " + std::to_string(code);
  return names[static_cast<std::size_t>(index)];
}

}  // namespace QelUtilVideo
