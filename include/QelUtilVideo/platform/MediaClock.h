#pragma once

#include <QelUtilVideo/platform/Export.h>

namespace QelUtilVideo {

/// Seconds of the media clock, which all timestamps of the library are in: it runs monotonically while
/// the machine is awake; its origin means nothing. Any thread.
[[nodiscard]] QEL_EXPORT double CACurrentMediaTime();

}  // namespace QelUtilVideo
