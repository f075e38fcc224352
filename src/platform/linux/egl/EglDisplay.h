#pragma once

#include "platform/NativeWindow.h"
#include "platform/linux/core/PixelSize.h"

#include <epoxy/egl.h>

#include <memory>
#include <optional>
#include <string>

namespace QelUtilVideo {

class PrivateConnection;

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

/// A driver that makes contexts: one without a window system, or one that also draws in the windows of an
/// X server; the latter serves one context, under that context's lock. No call raises SIGPIPE.
class EglDisplay {
 public:
  /// The best driver there is that needs no window system: the surfaceless one, then each graphics
  /// processor, then the default display; one on hardware before one in software. EGL keeps one such
  /// display per process, which a host may share: it is never terminated. Null when none can, and then
  /// `reasons` says why.
  [[nodiscard]] static std::shared_ptr<const EglDisplay> open(std::string& reasons);
  /// The driver for windows like this one, on a connection of its own to their server. Contexts and surfaces
  /// go before the display does. Null when there is none, and then `reasons` says why.
  [[nodiscard]] static std::shared_ptr<const EglDisplay> open(const NativeWindow& window,
                                                              std::string& reasons);

  /// Without a window system.
  EglDisplay(EGLDisplay display, EGLConfig config);
  EglDisplay(const EglDisplay&) = delete;
  EglDisplay& operator=(const EglDisplay&) = delete;
  ~EglDisplay();

  [[nodiscard]] EGLDisplay get() const { return display_; }
  [[nodiscard]] EGLConfig config() const { return config_; }
  /// Whether contexts of this display can draw in windows of the same server and visual.
  [[nodiscard]] bool reaches(const NativeWindow& window) const;
  /// Asks the server for the size of one of its windows in pixels; absent when the window is gone.
  [[nodiscard]] std::optional<PixelSize> sizeOf(const NativeWindow& window) const;
  /// False once a loss of the server was noticed. Asks nobody.
  [[nodiscard]] bool isAlive() const;
  /// What became of a window that is gone.
  [[nodiscard]] std::string lossOfWindow() const;
  /// Sends the server what waits to be sent.
  void flush() const;
  /// Empty when the driver refuses; `error` then says why.
  [[nodiscard]] EglContextHandle makeContext(EGLint& error) const;

 private:
  EglDisplay(EGLDisplay display, EGLConfig config, std::unique_ptr<PrivateConnection> connection,
             const NativeWindow& window);

  EGLDisplay display_;
  EGLConfig config_;
  std::unique_ptr<PrivateConnection> connection_;  ///< null without a window system
  std::string server_;
  std::uint32_t visual_ = 0;
};

}  // namespace QelUtilVideo
