#pragma once

#include "platform/CallSafely.h"
#include "platform/linux/egl/Surface.h"

#include <cstdint>
#include <utility>

namespace QelUtilVideo {

/// A surface that shows nowhere: two colour buffers take turns at being drawn to and being the picture
/// presented last. They live in the context and go with it.
class OffscreenSurface final : public Surface {
 public:
  /// `trouble` is told once when there is no memory for a buffer; what is drawn then is lost.
  explicit OffscreenSurface(TroubleHandler trouble) : trouble_(std::move(trouble)) {}

  [[nodiscard]] EGLSurface eglSurface() const override { return EGL_NO_SURFACE; }
  /// Sides are kept from 1 to the largest that the driver can.
  void bind(Size size) override;
  void present() override;
  [[nodiscard]] CGImageRef copyPresented() override;
  /// Nothing is waited for: the layer's own clock paces it.
  void setSwapInterval(int) override {}

 private:
  struct Buffer {
    std::uint32_t renderbuffer = 0;
    Size size{0, 0};
  };

  void create();
  void resize(Buffer& buffer, Size size);

  TroubleHandler trouble_;
  std::uint32_t drawFramebuffer_ = 0;
  std::uint32_t readFramebuffer_ = 0;
  int largestSide_ = 0;
  Buffer back_;
  Buffer front_;
  bool presented_ = false;
  bool reported_ = false;
};

}  // namespace QelUtilVideo
