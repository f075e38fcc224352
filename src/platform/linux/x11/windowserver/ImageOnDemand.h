#pragma once

#include "platform/linux/x11/PixelFormats.h"
#include "platform/linux/x11/windowserver/WindowPixels.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <memory>
#include <optional>

namespace QelUtilVideo {

/// What to fetch, as `WindowPixels::fetch` takes it.
struct WantedPixels {
  WindowPixels::Selection selection;
  std::optional<PixelRect> area;
  Opacity opacity = Opacity::asItIs;
};

/// An image of that size whose pixels are fetched when they are first asked for; there are none when windows
/// changed their size meanwhile. `format` is that of the window at the back: where it is not RGB, the image
/// has its layout for everybody to see, but no bytes. Null for a format that no image has. The image may
/// outlive the pixels' source.
[[nodiscard]] std::shared_ptr<CGImage> makeImageOnDemand(const std::shared_ptr<WindowPixels>& pixels,
                                                         const PixelRect& size,
                                                         const std::optional<X11PixelFormat>& format,
                                                         WantedPixels wanted);

}  // namespace QelUtilVideo
