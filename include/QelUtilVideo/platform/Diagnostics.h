#pragma once

#include <QelUtilVideo/platform/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace QelUtilVideo {

/// One thing of the machine that the library makes use of, and how it stands.
struct Finding {
  enum class Area : std::uint8_t {
    displays,  ///< capturing displays and windows
    drawing,   ///< drawing views
    cameras,   ///< capturing cameras
    system,    ///< logs, settings and files; nothing else depends on them
  };
  enum class State : std::uint8_t {
    ok,
    limited,  ///< works, though less well than it could
    missing,  ///< does not work; in the first two areas: then nothing of the area does
    unused,   ///< this version of the library makes no use of it
  };

  Area area = Area::system;
  std::string subject;  ///< what this is about, e.g. "Shared memory"
  State state = State::ok;
  std::string detail;  ///< what was found
  std::string remedy;  ///< what to do about it, a sentence; empty when all is well
};

/// Looks at the machine anew: the display server that DISPLAY names, the OpenGL drivers, the system's
/// services. Findings are in a fixed order, area by area. Opens no window and changes nothing; what the
/// library itself has in use is left alone, so that this works when that is lost.
///
/// Any thread. Takes about a tenth of a second, and five seconds more for each thing that gives no answer:
/// that is a finding too, and a thread stays behind that waits for it. An examination that fails in any
/// other way is a finding as well.
[[nodiscard]] QEL_EXPORT std::vector<Finding> examineMachine();

}  // namespace QelUtilVideo
