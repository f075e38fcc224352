#pragma once

#include <QelUtilVideo/platform/CGGeometry.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace QelUtilVideo {

class MTLDevice;
class RenderViewImpl;
class Root;

enum class RenderBackend : std::uint8_t { metal, openGL };

/// Metal wherever it exists and the user has not switched it off.
[[nodiscard]] constexpr RenderBackend chooseBackend(bool metalDisabled, bool metalDeviceExists) {
  return !metalDisabled && metalDeviceExists ? RenderBackend::metal : RenderBackend::openGL;
}

/// The OpenGL backend's view; defined beside that backend. Main thread.
[[nodiscard]] std::shared_ptr<RenderViewImpl> makeOpenGLRenderView(CGRect frame);

/// The Metal backend's view; defined beside that backend. Main thread.
[[nodiscard]] std::shared_ptr<RenderViewImpl> makeMetalRenderView(CGRect frame,
                                                                  const std::shared_ptr<MTLDevice>& device);

/// Makes the view that draws for a `RenderView`. The choice is made once per view and is final. There
/// is one such object per root. Main thread.
class Backends {
 public:
  using MetalFactory =
      std::function<std::shared_ptr<RenderViewImpl>(CGRect frame, const std::shared_ptr<MTLDevice>& device)>;
  using OpenGLFactory = std::function<std::shared_ptr<RenderViewImpl>(CGRect frame)>;

  explicit Backends(Root& root);

  /// A backend with this frame; never null.
  [[nodiscard]] std::shared_ptr<RenderViewImpl> makeRenderView(CGRect frame);

  /// Replaces a factory for the views made from now on. Without a Metal factory no Metal device counts
  /// as existing.
  void setMetalFactory(MetalFactory factory);
  void setOpenGLFactory(OpenGLFactory factory);

 private:
  Root& root_;
  MetalFactory metalFactory_;
  OpenGLFactory openGLFactory_;
};

}  // namespace QelUtilVideo
