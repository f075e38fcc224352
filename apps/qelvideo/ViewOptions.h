#pragma once

#include <QelUtilVideo/CGImagePropertyOrientation.h>
#include <QelUtilVideo/platform/CGGeometry.h>
#include <QelUtilVideo/platform/NSColor.h>

#include <memory>
#include <string>
#include <string_view>

namespace qelvideo {

/// How a view shows its frames.
struct ViewOptions {
  enum class Placing { fit, fill, automatic };

  QelUtilVideo::CGSize size;
  Placing placing = Placing::fit;
  QelUtilVideo::CGImagePropertyOrientation orientation = QelUtilVideo::CGImagePropertyOrientation::up;
  std::shared_ptr<const QelUtilVideo::NSColor> background;  ///< null: opaque black
  bool animates = false;
  float blurRadius = 0;  ///< of the picture's side; 0: sharp
};

/// As `parseOrientation` takes it.
[[nodiscard]] std::string_view orientationName(QelUtilVideo::CGImagePropertyOrientation orientation);

// Readers of options' values. Each throws `UsageFailure` that shows what is understood.

/// "640x360"; sides from 1 to 16384.
[[nodiscard]] QelUtilVideo::CGSize parseSize(const std::string& text);
/// "#rrggbb" or "#rrggbbaa", hexadecimal.
[[nodiscard]] std::shared_ptr<const QelUtilVideo::NSColor> parseColor(const std::string& text);
/// A number from 1 to 8 or a name such as "right" or "up-mirrored".
[[nodiscard]] QelUtilVideo::CGImagePropertyOrientation parseOrientation(const std::string& text);

}  // namespace qelvideo
