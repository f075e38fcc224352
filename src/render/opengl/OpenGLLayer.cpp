#include "render/opengl/OpenGLLayer.h"

#include "log/Log.h"
#include "render/opengl/OpenGLRenderView.h"

#include <optional>
#include <utility>

namespace QelUtilVideo::opengl {

namespace {

constexpr std::int32_t oncePerRefresh = 1;

bool areEqual(const std::shared_ptr<NSOpenGLContext>& a, const std::shared_ptr<NSOpenGLContext>& b) {
  return a && b ? a->isEqual(*b) : a == b;
}

}  // namespace

OpenGLLayer::OpenGLLayer(OpenGL& openGL, std::string logName)
    : NSOpenGLLayer(openGL), logName_(std::move(logName)) {}

std::shared_ptr<OpenGLLayer> OpenGLLayer::make(NSCoder&) {
  fatal("[OpenGLLayer] init(coder:) has not been implemented");
}

OpenGLLayer::~OpenGLLayer() { log(LogLevel::info, logName_ + " layer deinit"); }

void OpenGLLayer::setOpenGLContext(std::shared_ptr<NSOpenGLContext> context) {
  const auto old = openGLContext();
  if (areEqual(old, context)) return;
  // Held until the context is replaced, or a refresh in between would prepare the old one again.
  std::optional<ContextLock> lock;
  if (const CGLContextObj lockable = old ? old->cglContextObj() : nullptr) lock.emplace(lockable);
  if (old) {
    if (const auto view = std::dynamic_pointer_cast<OpenGLRenderView>(this->view())) view->finalize();
  }
  NSOpenGLLayer::setOpenGLContext(std::move(context));
}

NSOpenGLPixelFormat OpenGLLayer::openGLPixelFormatForDisplayMask(std::uint32_t) {
  return {{NSOpenGLPFAOpenGLProfile, NSOpenGLProfileVersion3_2Core,  //
           NSOpenGLPFAAlphaSize, 8,                                  //
           NSOpenGLPFAColorSize, 24,                                 //
           NSOpenGLPFAAccelerated,                                   //
           NSOpenGLPFADoubleBuffer,                                  //
           NSOpenGLPFAAllowOfflineRenderers,                         //
           0}};
}

std::shared_ptr<NSOpenGLContext> OpenGLLayer::openGLContextForPixelFormat(const NSOpenGLPixelFormat& format) {
  auto context = NSOpenGLLayer::openGLContextForPixelFormat(format);
  if (!context) return nullptr;
  context->setValues(oncePerRefresh, NSOpenGLContextParameterSwapInterval);
  log(LogLevel::info, logName_ + " created context");
  return context;
}

bool OpenGLLayer::canDrawInOpenGLContext(NSOpenGLContext&, double) {
  const auto view = std::dynamic_pointer_cast<OpenGLRenderView>(this->view());
  return view && view->canDraw();
}

}  // namespace QelUtilVideo::opengl
