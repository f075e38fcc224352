#include "platform/linux/egl/EglContext.h"

#include "platform/linux/egl/FreshThread.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace QelUtilVideo {

namespace {

thread_local const EglContext* currentContext = nullptr;

int sideInPixels(double side) {
  constexpr double largest = 1 << 20;
  return std::isfinite(side) ? static_cast<int>(std::clamp(side, 1.0, largest)) : 1;
}

/// Whether a context that could not be made current for this reason never will be.
bool isLoss(EGLint error) {
  return error == EGL_CONTEXT_LOST || error == EGL_BAD_CONTEXT || error == EGL_BAD_DISPLAY ||
         error == EGL_NOT_INITIALIZED;
}

}  // namespace

EglContext::EglContext(std::shared_ptr<const EglDisplay> display, EglContextHandle context,
                       std::unique_ptr<Surface> surface, TroubleHandler trouble)
    : display_(std::move(display)),
      context_(std::move(context)),
      trouble_(std::move(trouble)),
      surface_(std::move(surface)) {}

bool EglContext::isAnyCurrent() { return currentContext != nullptr; }

CGLContextObj EglContext::cglContextObj() { return lost_ ? nullptr : this; }

bool EglContext::makeCurrentContext() {
  const std::lock_guard guard(mutex_);
  if (!makeCurrent()) return false;
  surface_->bind(size_.copy());
  return true;
}

void EglContext::flushBuffer() {
  const std::lock_guard guard(mutex_);
  if (isCurrent()) surface_->present();
}

void EglContext::setValues(std::int32_t value, std::int32_t parameter) {
  const std::lock_guard guard(mutex_);
  if (parameter == NSOpenGLContextParameterSwapInterval) surface_->setSwapInterval(value);
}

void EglContext::setSurfaceSize(CGSize pixels) {
  size_.with([&](Surface::Size& size) { size = {sideInPixels(pixels.width), sideInPixels(pixels.height)}; });
}

CGImageRef EglContext::copyPresentedImage() {
  const auto copy = [this] {
    const std::lock_guard guard(*this);
    return makeCurrent() ? surface_->copyPresented() : nullptr;
  };
  if (lost_) return nullptr;
  return owner_ == std::this_thread::get_id() ? copy() : onFreshThread(copy);
}

void EglContext::lock() {
  mutex_.lock();
  owner_ = std::this_thread::get_id();
  depth_ += 1;
}

void EglContext::unlock() {
  if (owner_ != std::this_thread::get_id()) return;
  depth_ -= 1;
  if (depth_ == 0) {
    owner_ = std::thread::id();
    if (const auto before = std::exchange(before_, std::nullopt); before && isCurrent()) {
      before->binding.restore(display_->get());
      currentContext = before->context;
    }
  }
  mutex_.unlock();
}

bool EglContext::makeCurrent() {
  if (isCurrent()) return true;
  // Without the lock nobody would release it again.
  if (lost_ || depth_ == 0) return false;
  const Before before{EglBinding::current(), currentContext};
  eglBindAPI(EGL_OPENGL_API);
  const EGLSurface surface = surface_->eglSurface();
  if (eglMakeCurrent(display_->get(), surface, surface, context_.get())) {
    if (!before_) before_ = before;
    currentContext = this;
    refused_ = false;
    return true;
  }
  const EGLint error = eglGetError();
  before.binding.restore(display_->get());
  reportRefusal(error);
  return false;
}

void EglContext::reportRefusal(EGLint error) {
  const bool lost = isLoss(error);
  const bool isNews = lost ? !lost_.exchange(true) : !std::exchange(refused_, true);
  if (!isNews || !trouble_) return;
  trouble_((lost ? "An OpenGL context is lost: " : "An OpenGL context is refused: ") + eglErrorName(error));
}

bool EglContext::isCurrent() const { return currentContext == this; }

}  // namespace QelUtilVideo
