#include "render/Backends.h"

#include "platform/Metal.h"
#include "platform/Root.h"
#include "platform/UserDefaults.h"
#include "render/RenderViewImpl.h"

#include <utility>

namespace QelUtilVideo {

Backends::Backends(Root& root)
    : root_(root), metalFactory_(makeMetalRenderView), openGLFactory_(makeOpenGLRenderView) {}

std::shared_ptr<RenderViewImpl> Backends::makeRenderView(CGRect frame) {
  Platform& platform = root_.platform();
  const bool metalDisabled = platform.userDefaults().boolForKey("QelUtilVideoRenderViewMetalDisabled");
  std::shared_ptr<MTLDevice> device;
  if (!metalDisabled && metalFactory_) device = platform.metal().MTLCreateSystemDefaultDevice();
  switch (chooseBackend(metalDisabled, device != nullptr)) {
    case RenderBackend::metal:
      return metalFactory_(frame, device);
    case RenderBackend::openGL:
      break;
  }
  return openGLFactory_(frame);
}

void Backends::setMetalFactory(MetalFactory factory) { metalFactory_ = std::move(factory); }

void Backends::setOpenGLFactory(OpenGLFactory factory) { openGLFactory_ = std::move(factory); }

}  // namespace QelUtilVideo
