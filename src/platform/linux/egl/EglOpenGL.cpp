#include "platform/linux/egl/EglOpenGL.h"

#include "platform/OpenGLFunctions.h"
#include "platform/linux/egl/EglContext.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/EpoxyFunctions.h"
#include "platform/linux/egl/LayerDriver.h"

#include <string>
#include <utility>

namespace QelUtilVideo {

EglOpenGL::EglOpenGL(TroubleHandler trouble)
    : trouble_(std::move(trouble)), functions_(makeEpoxyFunctions()) {}

EglOpenGL::~EglOpenGL() = default;

std::shared_ptr<NSOpenGLContext> EglOpenGL::makeContext(const NSOpenGLPixelFormat&,
                                                        const NativeWindow* window) {
  auto driver = window ? displayFor(*window) : display();
  if (!driver) return nullptr;
  EGLint error = EGL_SUCCESS;
  EglContextHandle handle = driver->makeContext(error);
  if (!handle && !window && (error == EGL_NOT_INITIALIZED || error == EGL_BAD_DISPLAY)) {
    // A host that uses the same one has ended it.
    {
      const MutexLock lock(mutex_);
      if (display_ == driver) display_.reset();
    }
    driver = display();
    if (!driver) return nullptr;
    handle = driver->makeContext(error);
  }
  if (!handle) {
    if (trouble_) trouble_("No OpenGL context: " + eglErrorName(error));
    return nullptr;
  }
  auto context = std::make_shared<EglContext>(std::move(driver), std::move(handle), trouble_);
  std::string reason;
  if (context->setDrawable(window, reason)) return context;
  if (trouble_) trouble_("A window cannot be drawn in: " + reason);
  return nullptr;
}

std::unique_ptr<OpenGLLayerDriver> EglOpenGL::makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer,
                                                              double refreshRate) {
  return LayerDriver::make(std::move(layer), refreshRate, trouble_);
}

std::shared_ptr<const EglDisplay> EglOpenGL::display() {
  std::string reasons;
  {
    const MutexLock lock(mutex_);
    if (!display_) display_ = EglDisplay::open(reasons);
    if (display_ || std::exchange(reported_, true)) return display_;
  }
  if (trouble_) trouble_("No OpenGL driver (" + reasons + ")");
  return nullptr;
}

std::shared_ptr<const EglDisplay> EglOpenGL::displayFor(const NativeWindow& window) const {
  std::string reasons;
  auto driver = EglDisplay::open(window, reasons);
  if (!driver && trouble_) trouble_("No OpenGL driver for a window (" + reasons + ")");
  return driver;
}

}  // namespace QelUtilVideo
