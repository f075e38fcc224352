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
/// belong to the image alone. A drawable of RGB pixels gives the library's usual layout; an indexed or
/// grey one gives its own pixels. Null when the server refuses or is gone, or when there is no memory.
[[nodiscard]] std::shared_ptr<CGImage> copyDrawable(X11Connection& connection, ShmPool& pool,
                                                    xcb_drawable_t drawable, const DrawableRect& rect);

}  // namespace QelUtilVideo
