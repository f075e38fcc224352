#pragma once

#include "platform/CallSafely.h"
#include "platform/OpenGL.h"
#include "platform/Synchronised.h"
#include "platform/ThreadSafety.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/EglWindow.h"
#include "platform/linux/egl/OffscreenSurface.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace QelUtilVideo {

/// A context of EGL's with its surface and its lock. What a thread had current before comes back with
/// the last unlock. A context that the driver has given up is lost for good; one that is refused because
/// of the thread or for want of memory may be had later. It is current without a surface of EGL's while
/// others draw, and in its window only while a picture is shown: drivers fix the size of what shows when a
/// window becomes current, and what draws off screen need not care what becomes of a window or its server.
class EglContext final : public NSOpenGLContext, public CGLContext {
 public:
  EglContext(std::shared_ptr<const EglDisplay> display, EglContextHandle context, TroubleHandler trouble);

  /// Whether the calling thread may call OpenGL.
  [[nodiscard]] static bool isAnyCurrent();

  // NSOpenGLContext
  [[nodiscard]] CGLContextObj cglContextObj() override;
  bool makeCurrentContext() override;
  void flushBuffer() override;
  void presentAgain() override;
  [[nodiscard]] bool isShown() const override;
  bool setDrawable(const NativeWindow* window) override;
  /// The same; `reason` says why it cannot draw there.
  bool setDrawable(const NativeWindow* window, std::string& reason);
  void setValues(std::int32_t value, std::int32_t parameter) override;
  /// Sides that are not finite or below 1 count as 1.
  void setSurfaceSize(CGSize pixels) override;
  [[nodiscard]] CGImageRef copyPresentedImage() override;

  // CGLContext
  /// Threads have it in turn: one that takes it again as soon as it has let go of it, as drawing threads may,
  /// comes after those that wait.
  void lock() override ACQUIRE(mutex_);
  /// Does nothing on a thread that does not have it, which the analysis cannot know.
  void unlock() override RELEASE(mutex_) NO_THREAD_SAFETY_ANALYSIS;

 private:
  /// What the thread had before this context was made current on it.
  struct Before {
    EglBinding binding;
    const EglContext* context = nullptr;
  };

  /// Has the lock while it lives.
  class SCOPED_CAPABILITY Turn {
   public:
    explicit Turn(EglContext& context) ACQUIRE(context.mutex_) : context_(context) { context_.lock(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() RELEASE() { context_.unlock(); }

   private:
    EglContext& context_;
  };

  [[nodiscard]] bool makeCurrent() REQUIRES(mutex_);
  [[nodiscard]] EGLint bindToThread();
  /// Gives the thread back what it had before.
  void releaseFromThread() REQUIRES(mutex_);
  /// With the context current.
  void showInWindow() REQUIRES(mutex_);
  void reportRefusal(EGLint error) REQUIRES(mutex_);
  [[nodiscard]] bool isCurrent() const;

  const std::shared_ptr<const EglDisplay> display_;
  const EglContextHandle context_;
  const TroubleHandler trouble_;
  std::atomic<bool> lost_ = false;
  Synchronised<PixelSize> size_;

  Mutex turn_;  ///< held while waiting for the other, which does not know who came first
  mutable RecursiveMutex mutex_;
  std::atomic<std::thread::id> owner_;
  int depth_ GUARDED_BY(mutex_) = 0;
  OffscreenSurface surface_ GUARDED_BY(mutex_);
  std::unique_ptr<EglWindow> window_ GUARDED_BY(mutex_);  ///< null off screen
  int swapInterval_ GUARDED_BY(mutex_) = 1;
  bool refused_ GUARDED_BY(mutex_) = false;   ///< the last attempt to make it current failed
  bool notShown_ GUARDED_BY(mutex_) = false;  ///< the window does not show what was presented last
  std::optional<Before> before_ GUARDED_BY(mutex_);
};

}  // namespace QelUtilVideo
