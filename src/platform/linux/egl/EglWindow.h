#pragma once

#include "platform/NativeWindow.h"

#include <epoxy/egl.h>

#include <memory>
#include <string>

namespace QelUtilVideo {

class EglDisplay;
class OffscreenSurface;

/// A window that one context presents in. Under the context's lock; the destructor too, with the window
/// current nowhere. No call raises SIGPIPE.
class EglWindow {
 public:
  /// Null when the display is another server's, or the window is gone or has another visual; `reason` then
  /// says why.
  [[nodiscard]] static std::unique_ptr<EglWindow> make(std::shared_ptr<const EglDisplay> display,
                                                       const NativeWindow& window, std::string& reason);
  EglWindow(const EglWindow&) = delete;
  EglWindow& operator=(const EglWindow&) = delete;
  ~EglWindow();

  [[nodiscard]] const NativeWindow& nativeWindow() const { return native_; }
  /// Shows the picture that was presented last, stretched to the window, and waits `swapInterval` refreshes
  /// where the driver does. The context is the one that is current without a surface; afterwards it is
  /// current, in the window or still without. `EGL_BAD_NATIVE_WINDOW`: the window is gone.
  [[nodiscard]] EGLint show(EGLContext context, const OffscreenSurface& pictures, int swapInterval);
  /// What became of it, when it is gone.
  [[nodiscard]] std::string loss() const;

 private:
  EglWindow(std::shared_ptr<const EglDisplay> display, NativeWindow native, EGLSurface surface);

  const std::shared_ptr<const EglDisplay> display_;
  const NativeWindow native_;
  const EGLSurface surface_;
  int swapInterval_ = -1;  ///< as last set; -1: never
};

}  // namespace QelUtilVideo
