#pragma once

#include "platform/CallSafely.h"
#include "platform/OpenGL.h"
#include "platform/Synchronised.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/Surface.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace QelUtilVideo {

/// A context of EGL's with its surface and its lock. What a thread had current before comes back with
/// the last unlock. A context that the driver has given up is lost for good; one that is refused because
/// of the thread or for want of memory may be had later.
class EglContext final : public NSOpenGLContext, public CGLContext {
 public:
  EglContext(std::shared_ptr<const EglDisplay> display, EglContextHandle context,
             std::unique_ptr<Surface> surface, TroubleHandler trouble);

  /// Whether the calling thread may call OpenGL.
  [[nodiscard]] static bool isAnyCurrent();

  // NSOpenGLContext
  [[nodiscard]] CGLContextObj cglContextObj() override;
  bool makeCurrentContext() override;
  void flushBuffer() override;
  void setValues(std::int32_t value, std::int32_t parameter) override;
  /// Sides that are not finite or below 1 count as 1.
  void setSurfaceSize(CGSize pixels) override;
  [[nodiscard]] CGImageRef copyPresentedImage() override;

  // CGLContext
  void lock() override;
  void unlock() override;

 private:
  /// What the thread had before this context was made current on it.
  struct Before {
    EglBinding binding;
    const EglContext* context = nullptr;
  };

  [[nodiscard]] bool makeCurrent();
  void reportRefusal(EGLint error);
  [[nodiscard]] bool isCurrent() const;

  const std::shared_ptr<const EglDisplay> display_;
  const EglContextHandle context_;
  const TroubleHandler trouble_;
  std::atomic<bool> lost_ = false;
  bool refused_ = false;  ///< the last attempt to make it current failed
  Synchronised<Surface::Size> size_;

  std::recursive_mutex mutex_;
  std::atomic<std::thread::id> owner_;
  int depth_ = 0;
  std::unique_ptr<Surface> surface_;
  std::optional<Before> before_;
};

}  // namespace QelUtilVideo
