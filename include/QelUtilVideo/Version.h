#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <string>

namespace QelUtilVideo {

/// The library's revision, from the key "QelUtilRevision" of the information file that lies beside the
/// library; "unknown" when there is none. Read anew on every call. Any thread.
[[nodiscard]] QEL_EXPORT std::string version();

}  // namespace QelUtilVideo
