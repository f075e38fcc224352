#pragma once

#include "platform/linux/x11/PixelFormats.h"
#include "platform/linux/x11/ShmPool.h"
#include "platform/linux/x11/windowserver/WindowRecord.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace QelUtilVideo {

/// What both have in common; of no size where that is nothing.
[[nodiscard]] PixelRect intersection(const PixelRect& a, const PixelRect& b);

/// The pixels of one window, as the server gave them, on their way into a picture.
struct WindowPiece {
  PixelRect place;  ///< in the root's coordinates
  X11PixelFormat format;
  std::shared_ptr<ImageBytes> bytes;  ///< rows as the format has them, `place` wide
  /// Where the window is, in the root's coordinates; absent: everywhere in `place`.
  std::optional<std::vector<PixelRect>> shape;
};

/// What a picture is wanted for.
enum class Opacity {
  asItIs,  ///< transparent where no window is
  whole,   ///< the same, but windows are as opaque as can be
};

/// The picture of `area` that the pieces make, the first one at the back, premultiplied by alpha. Changes the
/// pieces' pixels. Null when there is no memory.
[[nodiscard]] std::shared_ptr<CGImage> composePieces(const PixelRect& area, std::vector<WindowPiece> pieces,
                                                     Opacity opacity, ShmPool& pool);

}  // namespace QelUtilVideo
