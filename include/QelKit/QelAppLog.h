#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <cstdint>
#include <string>

namespace QelKit {

/// The companion framework's log: one line "LEVEL [line] message" on standard error, where the level is
/// "error" (0), "warning" (1) or "info" (2). A number outside that range is written as it is.
/// Any thread; lines are written whole.
QEL_EXPORT void QelAppLog(std::int64_t level, std::uint64_t line, const std::string& message);

}  // namespace QelKit
