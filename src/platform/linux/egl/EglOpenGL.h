#pragma once

#include "platform/CallSafely.h"
#include "platform/OpenGL.h"
#include "platform/ThreadSafety.h"

#include <memory>

namespace QelUtilVideo {

class EglDisplay;

/// OpenGL through EGL, which needs neither a display server nor a graphics processor. The driver for what
/// is drawn off screen is looked for when the first such context is asked for, and again each time while
/// there is none; each context for a window has a driver and a connection to the X server of its own.
class EglOpenGL final : public OpenGL {
 public:
  /// `trouble` is called on any thread: once when there is no driver off screen, each time that there is
  /// none for a window, once per window or context that is lost, once each time that one begins to be
  /// refused.
  explicit EglOpenGL(TroubleHandler trouble);
  ~EglOpenGL() override;

  [[nodiscard]] std::shared_ptr<NSOpenGLContext> makeContext(const NSOpenGLPixelFormat& format,
                                                             const NativeWindow* window) override;
  [[nodiscard]] std::unique_ptr<OpenGLLayerDriver> makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer,
                                                                   double refreshRate) override;
  /// Calls without a current context do nothing and answer 0.
  [[nodiscard]] OpenGLFunctions& functions() override { return *functions_; }

 private:
  [[nodiscard]] std::shared_ptr<const EglDisplay> display();
  [[nodiscard]] std::shared_ptr<const EglDisplay> displayFor(const NativeWindow& window) const;

  const TroubleHandler trouble_;
  const std::unique_ptr<OpenGLFunctions> functions_;
  Mutex mutex_;
  std::shared_ptr<const EglDisplay> display_ GUARDED_BY(mutex_);
  bool reported_ GUARDED_BY(mutex_) = false;
};

}  // namespace QelUtilVideo
