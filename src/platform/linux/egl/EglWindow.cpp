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
  reason = display->lossOf(window);
  if (!reason.empty()) return nullptr;
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

std::string EglWindow::loss() const { return display_->lossOf(native_); }

EGLint EglWindow::show(const OffscreenSurface& pictures, int swapInterval) {
  const NoPipeSignal noSignal;
  if (std::exchange(swapInterval_, swapInterval) != swapInterval) {
    eglSwapInterval(display_->get(), swapInterval);
  }
  EGLint width = 0, height = 0;
  if (!eglQuerySurface(display_->get(), surface_, EGL_WIDTH, &width) ||
      !eglQuerySurface(display_->get(), surface_, EGL_HEIGHT, &height)) {
    return eglGetError();
  }
  pictures.paintPresented({width, height});
  // The asking may have shown that the server is gone. Mesa's software driver counts to two thousand million
  // when it swaps on a connection that is known to be broken.
  if (!display_->isAlive()) return EGL_BAD_NATIVE_WINDOW;
  if (!eglSwapBuffers(display_->get(), surface_)) return eglGetError();
  // Not every driver does, and the picture would wait for the next one.
  display_->flush();
  return EGL_SUCCESS;
}

}  // namespace QelUtilVideo
