#pragma once

#include <epoxy/egl.h>

#include <memory>
#include <string>

namespace QelUtilVideo {

/// A driver's core-profile 3.2 context; destroying it frees every object that was made in it. It must
/// not be current on any thread then.
class EglContextHandle {
 public:
  EglContextHandle() = default;
  EglContextHandle(EGLDisplay display, EGLContext context) : display_(display), context_(context) {}
  EglContextHandle(EglContextHandle&& other) noexcept;
  EglContextHandle& operator=(EglContextHandle&& other) noexcept;
  ~EglContextHandle();

  [[nodiscard]] EGLContext get() const { return context_; }
  explicit operator bool() const { return context_ != EGL_NO_CONTEXT; }

 private:
  EGLDisplay display_ = EGL_NO_DISPLAY;
  EGLContext context_ = EGL_NO_CONTEXT;
};

/// A driver that draws without a window system. EGL keeps one such display per process, which a host may
/// share: it is never terminated. Immutable; any thread.
class EglDisplay {
 public:
  /// The best driver there is: the surfaceless one, then each graphics processor, then the default
  /// display; one on hardware before one in software. Null when none can, and then `reasons` says why.
  [[nodiscard]] static std::shared_ptr<const EglDisplay> open(std::string& reasons);

  EglDisplay(EGLDisplay display, EGLConfig config) : display_(display), config_(config) {}

  [[nodiscard]] EGLDisplay get() const { return display_; }
  /// Empty when the driver refuses; `error` then says why.
  [[nodiscard]] EglContextHandle makeContext(EGLint& error) const;

 private:
  EGLDisplay display_;
  EGLConfig config_;
};

}  // namespace QelUtilVideo
