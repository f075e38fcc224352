#include "platform/linux/egl/EglContext.h"

#include "platform/linux/core/NoPipeSignal.h"
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
                       TroubleHandler trouble)
    : display_(std::move(display)),
      context_(std::move(context)),
      trouble_(std::move(trouble)),
      surface_(trouble_) {}

bool EglContext::isAnyCurrent() { return currentContext != nullptr; }

CGLContextObj EglContext::cglContextObj() { return lost_ ? nullptr : this; }

bool EglContext::makeCurrentContext() {
  const MutexLock guard(mutex_);
  if (!makeCurrent()) return false;
  surface_.bind(size_.copy());
  return true;
}

void EglContext::flushBuffer() {
  const MutexLock guard(mutex_);
  if (!isCurrent()) return;
  surface_.present();
  showInWindow();
}

void EglContext::presentAgain() {
  const Turn turn(*this);
  if (!window_) return;
  if (makeCurrent()) {
    showInWindow();
  } else {
    notShown_ = true;
  }
}

bool EglContext::isShown() const {
  const MutexLock guard(mutex_);
  return !window_ || !notShown_;
}

bool EglContext::setDrawable(const NativeWindow* window) {
  std::string reason;
  return setDrawable(window, reason);
}

bool EglContext::setDrawable(const NativeWindow* window, std::string& reason) {
  const Turn turn(*this);
  if (window_ && window && window_->nativeWindow() == *window) return true;
  window_.reset();
  if (!window) return true;
  window_ = EglWindow::make(display_, *window, reason);
  notShown_ = false;
  return window_ != nullptr;
}

void EglContext::setValues(std::int32_t value, std::int32_t parameter) {
  const MutexLock guard(mutex_);
  if (parameter == NSOpenGLContextParameterSwapInterval) swapInterval_ = value;
}

void EglContext::setSurfaceSize(CGSize pixels) {
  size_.with([&](PixelSize& size) { size = {sideInPixels(pixels.width), sideInPixels(pixels.height)}; });
}

CGImageRef EglContext::copyPresentedImage() {
  const auto copy = [this] {
    const Turn turn(*this);
    return makeCurrent() ? surface_.copyPresented() : nullptr;
  };
  if (lost_) return nullptr;
  return owner_ == std::this_thread::get_id() ? copy() : onFreshThread(copy);
}

void EglContext::lock() {
  std::unique_lock turn(turn_, std::defer_lock);
  if (owner_ != std::this_thread::get_id()) turn.lock();
  mutex_.lock();
  owner_ = std::this_thread::get_id();
  depth_ += 1;
}

void EglContext::unlock() {
  if (owner_ != std::this_thread::get_id()) return;
  depth_ -= 1;
  if (depth_ == 0) {
    owner_ = std::thread::id();
    releaseFromThread();
  }
  mutex_.unlock();
}

bool EglContext::makeCurrent() {
  if (isCurrent()) return true;
  // Without the lock nobody would release it again.
  if (lost_ || depth_ == 0) return false;
  const Before before{EglBinding::current(), currentContext};
  eglBindAPI(EGL_OPENGL_API);
  const EGLint error = bindToThread();
  if (error == EGL_SUCCESS) {
    if (!before_) before_ = before;
    currentContext = this;
    refused_ = false;
    return true;
  }
  before.binding.restore(display_->get());
  reportRefusal(error);
  return false;
}

EGLint EglContext::bindToThread() {
  const bool isBound = eglMakeCurrent(display_->get(), EGL_NO_SURFACE, EGL_NO_SURFACE, context_.get());
  return isBound ? EGL_SUCCESS : eglGetError();
}

void EglContext::releaseFromThread() {
  const auto before = std::exchange(before_, std::nullopt);
  if (!before || !isCurrent()) return;
  before->binding.restore(display_->get());
  currentContext = before->context;
}

void EglContext::showInWindow() {
  if (!window_) return;
  const NoPipeSignal noSignal;
  const EGLint error = window_->show(context_.get(), surface_, swapInterval_);
  const EGLint unbound = bindToThread();
  if (unbound != EGL_SUCCESS) releaseFromThread();
  if (unbound != EGL_SUCCESS || isLoss(error)) return reportRefusal(isLoss(error) ? error : unbound);
  const bool wasShown = !std::exchange(notShown_, error != EGL_SUCCESS);
  if (!notShown_) return;
  const bool isGone = error == EGL_BAD_NATIVE_WINDOW;
  if (wasShown && trouble_) {
    trouble_("A window shows nothing new: " + (isGone ? window_->loss() : eglErrorName(error)));
  }
  if (isGone) window_.reset();
}

void EglContext::reportRefusal(EGLint error) {
  const bool lost = isLoss(error);
  const bool isNews = lost ? !lost_.exchange(true) : !std::exchange(refused_, true);
  // A window takes one surface, and whatever replaces this context wants to make its own.
  if (lost) window_.reset();
  if (!isNews || !trouble_) return;
  trouble_((lost ? "An OpenGL context is lost: " : "An OpenGL context is refused: ") + eglErrorName(error));
}

bool EglContext::isCurrent() const { return currentContext == this; }

}  // namespace QelUtilVideo
