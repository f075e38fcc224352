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
  [[nodiscard]] EGLSurface surface() const { return surface_; }
  /// Asks the server. Empty, or what became of the window. Some drivers wait for ever for a window that is
  /// gone: ask before each use that may wait for it.
  [[nodiscard]] std::string loss() const;
  /// With the context current in this window: shows the picture that was presented last, stretched to the
  /// window, and waits `swapInterval` refreshes where the driver does.
  [[nodiscard]] EGLint show(const OffscreenSurface& pictures, int swapInterval);

 private:
  EglWindow(std::shared_ptr<const EglDisplay> display, NativeWindow native, EGLSurface surface);

  const std::shared_ptr<const EglDisplay> display_;
  const NativeWindow native_;
  const EGLSurface surface_;
  int swapInterval_ = -1;  ///< as last set; -1: never
};

}  // namespace QelUtilVideo
