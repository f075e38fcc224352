#pragma once

#include <QelUtilVideo/platform/NSError.h>

namespace QelUtilVideo::windowlist {

/// What can go wrong with window-list capture.
enum class Error {
  failedToCapture,  ///< the display or window is gone
};

/// The error as hosts see it.
[[nodiscard]] NSError makeError(Error error);

}  // namespace QelUtilVideo::windowlist
