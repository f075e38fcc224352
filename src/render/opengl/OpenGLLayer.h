#pragma once

#include "platform/NSOpenGLLayer.h"

#include <memory>
#include <string>

namespace QelUtilVideo {
class NSCoder;
}

namespace QelUtilVideo::opengl {

/// The layer that an `OpenGLRenderView` draws on. It asks its view before each refresh whether to draw,
/// and lets the view give its GL objects back before their context is replaced. Main thread, except
/// where the base says otherwise.
class OpenGLLayer final : public NSOpenGLLayer {
 public:
  OpenGLLayer(OpenGL& openGL, std::string logName);
  /// A layer cannot be read from an archive: ends the process.
  [[noreturn]] static std::shared_ptr<OpenGLLayer> make(NSCoder& coder);
  ~OpenGLLayer() override;

  // NSOpenGLLayer
  void setOpenGLContext(std::shared_ptr<NSOpenGLContext> context) override;
  [[nodiscard]] NSOpenGLPixelFormat openGLPixelFormatForDisplayMask(std::uint32_t mask) override;
  [[nodiscard]] std::shared_ptr<NSOpenGLContext> openGLContextForPixelFormat(
      const NSOpenGLPixelFormat& format) override;
  [[nodiscard]] bool canDrawInOpenGLContext(NSOpenGLContext& context, double displayTime) override;

 private:
  const std::string logName_;
};

}  // namespace QelUtilVideo::opengl
