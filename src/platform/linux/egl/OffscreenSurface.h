#pragma once

#include "platform/CallSafely.h"
#include "platform/linux/core/PixelSize.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <cstdint>
#include <utility>

namespace QelUtilVideo {

/// What one context draws on: two colour buffers take turns at being drawn to and being the picture
/// presented last. They live in the context and go with it. All members are called with the context
/// current, under its lock. The destructor is not, and makes no OpenGL call.
class OffscreenSurface {
 public:
  /// `trouble` is told once when there is no memory for a buffer; what is drawn then is lost.
  explicit OffscreenSurface(TroubleHandler trouble) : trouble_(std::move(trouble)) {}

  /// Makes the surface the framebuffer that is drawn to, at this size; sides are kept from 1 to the largest
  /// that the driver can. Other state stays as it is.
  void bind(PixelSize size);
  /// Makes what was drawn the picture presented last.
  void present();
  /// Paints that picture over the whole of the default framebuffer, which has this size; black before the
  /// first presentation; nothing where there is no default framebuffer. Leaves all state of the client as it
  /// is.
  void paintPresented(PixelSize size) const;
  /// That picture, first row at the top, colours not multiplied by alpha; null before the first
  /// presentation. Leaves all state as it is.
  [[nodiscard]] CGImageRef copyPresented() const;

 private:
  struct Buffer {
    std::uint32_t renderbuffer = 0;
    PixelSize size{0, 0};
  };

  void create();
  void resize(Buffer& buffer, PixelSize size);

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
