#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Commands.h"
#include "ViewOptions.h"
#include "ViewWindow.h"

namespace qelvideo {

/// What `qelvideo view` is to do.
struct ViewJob {
  std::string source;  ///< a film's file, "-" for one on standard input, or the name of a source
  ViewPlace place;
  ViewOptions options;
  std::optional<std::uint64_t> frames;
  std::string screenshot;  ///< file for a picture of the view in the end; empty: none
};

/// Shows the source: off screen until it or its number of frames has ended; in a window also until the
/// person ends it by a key, in the window or at the terminal, or by closing the window. What happens to the
/// source or to the window meanwhile is told and ends nothing. Throws `Failure`. Main thread.
void show(const Context& context, const ViewJob& job);

}  // namespace qelvideo
