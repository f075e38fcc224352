#include "platform/linux/egl/EglWindow.h"

#include "platform/linux/core/NoPipeSignal.h"
#include "platform/linux/egl/EglBinding.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/OffscreenSurface.h"

#include <utility>

namespace QelUtilVideo {

std::unique_ptr<EglWindow> EglWindow::make(std::shared_ptr<const EglDisplay> display,
                                           const NativeWindow& window, std::string& reason) {
  reason = "it belongs to another server or has another visual";
  if (!display->reaches(window)) return nullptr;
  if (!display->sizeOf(window)) {
    reason = display->lossOfWindow();
    return nullptr;
  }
  const NoPipeSignal noSignal;
  std::uint32_t xid = window.window;
  EGLSurface surface = eglCreatePlatformWindowSurfaceEXT(display->get(), display->config(), &xid, nullptr);
  if (surface != EGL_NO_SURFACE) {
    return std::unique_ptr<EglWindow>(new EglWindow(std::move(display), window, surface));
  }
  reason = eglErrorName(eglGetError());
  return nullptr;
}

EglWindow::EglWindow(std::shared_ptr<const EglDisplay> display, NativeWindow native, EGLSurface surface)
    : display_(std::move(display)), native_(std::move(native)), surface_(surface) {}

EglWindow::~EglWindow() {
  const NoPipeSignal noSignal;
  eglDestroySurface(display_->get(), surface_);
}

EGLint EglWindow::show(EGLContext context, const OffscreenSurface& pictures, int swapInterval) {
  const NoPipeSignal noSignal;
  // Drivers settle on the size when the window becomes current: asked for right before, it is the same.
  const auto size = display_->sizeOf(native_);
  if (!size) return EGL_BAD_NATIVE_WINDOW;
  if (!eglMakeCurrent(display_->get(), surface_, surface_, context)) return eglGetError();
  if (std::exchange(swapInterval_, swapInterval) != swapInterval) {
    eglSwapInterval(display_->get(), swapInterval);
  }
  pictures.paintPresented(*size);
  // Mesa's software driver counts to two thousand million when it swaps on a connection that it knows to be
  // broken.
  if (!display_->isAlive()) return EGL_BAD_NATIVE_WINDOW;
  if (!eglSwapBuffers(display_->get(), surface_)) return eglGetError();
  // Not every driver does, and the picture would wait for the next one.
  display_->flush();
  return EGL_SUCCESS;
}

std::string EglWindow::loss() const { return display_->lossOfWindow(); }

}  // namespace QelUtilVideo
