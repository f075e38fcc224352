#include "platform/linux/egl/EglOpenGL.h"

#include "platform/OpenGLFunctions.h"
#include "platform/linux/egl/EglContext.h"
#include "platform/linux/egl/EglDisplay.h"
#include "platform/linux/egl/EpoxyFunctions.h"
#include "platform/linux/egl/LayerDriver.h"
#include "platform/linux/egl/OffscreenSurface.h"

#include <string>
#include <utility>

namespace QelUtilVideo {

EglOpenGL::EglOpenGL(TroubleHandler trouble)
    : trouble_(std::move(trouble)), functions_(makeEpoxyFunctions()) {}

EglOpenGL::~EglOpenGL() = default;

std::shared_ptr<NSOpenGLContext> EglOpenGL::makeContext(const NSOpenGLPixelFormat&) {
  auto driver = display();
  if (!driver) return nullptr;
  EGLint error = EGL_SUCCESS;
  EglContextHandle context = driver->makeContext(error);
  if (!context) {
    if (trouble_) trouble_("No OpenGL context: " + eglErrorName(error));
    return nullptr;
  }
  return std::make_shared<EglContext>(std::move(driver), std::move(context),
                                      std::make_unique<OffscreenSurface>(trouble_), trouble_);
}

std::unique_ptr<OpenGLLayerDriver> EglOpenGL::makeLayerDriver(std::weak_ptr<NSOpenGLLayer> layer) {
  return LayerDriver::make(std::move(layer), trouble_);
}

std::shared_ptr<const EglDisplay> EglOpenGL::display() {
  std::string reasons;
  {
    const std::lock_guard lock(mutex_);
    if (!display_) display_ = EglDisplay::open(reasons);
    if (display_ || std::exchange(reported_, true)) return display_;
  }
  if (trouble_) trouble_("No OpenGL driver (" + reasons + ")");
  return nullptr;
}

}  // namespace QelUtilVideo
