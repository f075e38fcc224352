#include "platform/linux/egl/EglContext.h"

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

}  // namespace

EglContext::EglContext(std::shared_ptr<const EglDisplay> display, EglContextHandle context,
                       std::unique_ptr<Surface> surface, TroubleHandler trouble)
    : display_(std::move(display)),
      context_(std::move(context)),
      trouble_(std::move(trouble)),
      surface_(std::move(surface)) {}

bool EglContext::isAnyCurrent() { return currentContext != nullptr; }

CGLContextObj EglContext::cglContextObj() { return lost_ ? nullptr : this; }

void EglContext::makeCurrentContext() {
  const std::lock_guard guard(mutex_);
  if (makeCurrent()) surface_->bind(size_.copy());
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
  lock();
  CGImageRef image = makeCurrent() ? surface_->copyPresented() : nullptr;
  unlock();
  return image;
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
    if (const auto before = std::move(before_); before && isCurrent()) {
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
  if (!before_) before_ = std::make_unique<const Before>(Before{EglBinding::current(), currentContext});
  eglBindAPI(EGL_OPENGL_API);
  const EGLSurface surface = surface_->eglSurface();
  if (eglMakeCurrent(display_->get(), surface, surface, context_.get())) {
    currentContext = this;
    return true;
  }
  const std::string reason = eglErrorName(eglGetError());
  if (!lost_.exchange(true) && trouble_) trouble_("An OpenGL context is lost: " + reason);
  std::exchange(before_, nullptr)->binding.restore(display_->get());
  return false;
}

bool EglContext::isCurrent() const { return currentContext == this; }

}  // namespace QelUtilVideo
