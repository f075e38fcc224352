#pragma once

#include "platform/NativeWindow.h"

#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/CGImage.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace QelUtilVideo {

class NSOpenGLLayer;
class OpenGLFunctions;

/// Attributes of a pixel format, ended by 0, as a context is asked for.
using NSOpenGLPixelFormatAttribute = std::uint32_t;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLPFADoubleBuffer = 5;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLPFAColorSize = 8;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLPFAAlphaSize = 11;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLPFAAccelerated = 73;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLPFAAllowOfflineRenderers = 96;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLPFAOpenGLProfile = 99;
inline constexpr NSOpenGLPixelFormatAttribute NSOpenGLProfileVersion3_2Core = 0x3200;

/// The context parameter that holds the swap interval.
inline constexpr std::int32_t NSOpenGLContextParameterSwapInterval = 222;

struct NSOpenGLPixelFormat {
  std::vector<NSOpenGLPixelFormatAttribute> attributes;
};

/// The part of a context that is locked. The lock is recursive; every use of a context happens under
/// it. Unlocking for the last time releases the context from the thread, so that another may have it.
class CGLContext {
 public:
  virtual ~CGLContext() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
};
using CGLContextObj = CGLContext*;

inline void CGLLockContext(CGLContextObj context) { context->lock(); }
inline void CGLUnlockContext(CGLContextObj context) { context->unlock(); }

/// Holds a context's lock while it lives.
class ContextLock {
 public:
  explicit ContextLock(CGLContextObj context) : context_(context) { CGLLockContext(context_); }
  ContextLock(const ContextLock&) = delete;
  ContextLock& operator=(const ContextLock&) = delete;
  ~ContextLock() { CGLUnlockContext(context_); }

 private:
  CGLContextObj context_;
};

/// A core-profile 3.2 context with its drawing surface: 8-bit RGBA, double-buffered.
class NSOpenGLContext {
 public:
  virtual ~NSOpenGLContext() = default;
  /// Null when the context is lost.
  [[nodiscard]] virtual CGLContextObj cglContextObj() = 0;
  /// Under the lock: makes the context current on this thread with its surface, at the size last set,
  /// as the draw framebuffer. False: it is not current; a context that is not lost may be so later.
  virtual bool makeCurrentContext() = 0;
  /// Under the lock: presents what was drawn, in the window that the context is tied to, if any.
  virtual void flushBuffer() = 0;
  /// Takes the lock. Shows what was presented last once more, stretched to the size that the window now
  /// has; black before the first presentation. Nothing without a window.
  virtual void presentAgain() = 0;
  /// Whether the window shows what was presented last; true without a window. With the context locked.
  [[nodiscard]] virtual bool isShown() const = 0;
  /// Takes the lock. Ties the context to a window, or to none (null), in place of the one before; what was
  /// presented last is kept. False: it cannot draw there (another server, another visual), and is tied to
  /// none. Any thread.
  virtual bool setDrawable(const NativeWindow* window) = 0;
  virtual void setValues(std::int32_t value, std::int32_t parameter) = 0;
  [[nodiscard]] virtual bool isEqual(const NSOpenGLContext& other) const { return this == &other; }

  /// The size in pixels that the surface takes when the context is next made current. Any thread.
  virtual void setSurfaceSize(CGSize pixels) = 0;
  /// Takes the lock and reads back what was presented last, whatever the thread has current; null before
  /// the first presentation. Colours are as they were drawn, which is not multiplied by alpha.
  [[nodiscard]] virtual CGImageRef copyPresentedImage() = 0;
};

/// Drives one asynchronous layer: calls `NSOpenGLLayer::refresh` once per refresh of the screen, on a
/// drawing thread of its own, until it is destroyed. Destroying it waits for no thread; a call that has
/// begun may still end. Any thread.
class OpenGLLayerDriver {
 public:
  virtual ~OpenGLLayerDriver() = default;
  /// Refreshes per second from now on; not finite or not above 0: 60.
  virtual void setRefreshRate(double perSecond) = 0;
};

/// Any thread.
class OpenGL {
 public:
  virtual ~OpenGL() = default;
  /// A context tied to the window (null: to none, it draws off screen). Null when there is no driver that
  /// can.
  [[nodiscard]] virtual std::shared_ptr<NSOpenGLContext> makeContext(const NSOpenGLPixelFormat& format,
                                                                     const NativeWindow* window) = 0;
  /// Refreshes per second as in `OpenGLLayerDriver::setRefreshRate`. Null when the system grants no thread
  /// for it.
  [[nodiscard]] virtual std::unique_ptr<OpenGLLayerDriver> makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer,
                                                                           double refreshRate) = 0;
  /// The functions of whichever context is current on the calling thread.
  [[nodiscard]] virtual OpenGLFunctions& functions() = 0;
};

}  // namespace QelUtilVideo
