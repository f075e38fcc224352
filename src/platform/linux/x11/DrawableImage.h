#pragma once

#include "platform/linux/x11/ShmPool.h"
#include "platform/linux/x11/X11Connection.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <memory>

namespace QelUtilVideo {

/// A rectangle of whole pixels, from a drawable's top-left corner.
struct DrawableRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

/// An opaque picture of that part of the drawable, through shared memory where there is some. The bytes
/// belong to the image alone and are touched by nobody on their way where the server's pixels are blue,
/// green, red and a fourth byte: the image then says that this byte means nothing, for the server leaves
/// anything in it. Other RGB pixels are converted to the library's usual layout; indexed and grey ones
/// stay what they are. Null when the server refuses or is gone, or when there is no memory.
[[nodiscard]] std::shared_ptr<CGImage> copyDrawable(X11Connection& connection, ShmPool& pool,
                                                    xcb_drawable_t drawable, const DrawableRect& rect);

}  // namespace QelUtilVideo
