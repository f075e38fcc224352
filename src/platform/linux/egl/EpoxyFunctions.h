#pragma once

#include <memory>

namespace QelUtilVideo {

class OpenGLFunctions;

/// OpenGL's functions, looked up by libepoxy. Without a current context of this platform they do nothing
/// and answer 0: the look-up ends the process when there is no context to look in.
[[nodiscard]] std::unique_ptr<OpenGLFunctions> makeEpoxyFunctions();

}  // namespace QelUtilVideo
