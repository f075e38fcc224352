#pragma once

#include <QelUtilVideo/platform/CGImage.h>

#include <epoxy/egl.h>

namespace QelUtilVideo {

/// What one context draws on and presents. All members are called with the context current, under its
/// lock. The destructor is not, and makes no OpenGL call.
class Surface {
 public:
  struct Size {
    int width = 1;
    int height = 1;
    friend bool operator==(const Size&, const Size&) = default;
  };

  virtual ~Surface() = default;
  /// What the context is made current with; may be `EGL_NO_SURFACE`.
  [[nodiscard]] virtual EGLSurface eglSurface() const = 0;
  /// Makes the surface the framebuffer that is drawn to, at this size. Other state stays as it is.
  virtual void bind(Size size) = 0;
  /// Shows what was drawn; what is drawn next does not show until then.
  virtual void present() = 0;
  /// What was presented last, first row at the top, colours not multiplied by alpha; null before that.
  /// Leaves all state as it is.
  [[nodiscard]] virtual CGImageRef copyPresented() = 0;
  /// How many refreshes of the screen a presentation waits for, where there is a screen.
  virtual void setSwapInterval(int interval) = 0;
};

}  // namespace QelUtilVideo
