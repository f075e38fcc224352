#pragma once

#include <string>

#include "SourceList.h"

namespace qelvideo {

/// Writes a PNG file of each source that gives a picture into the folder, which is made where it is missing,
/// and an `index.html` to look at them. Answers that page's path. Throws `Failure` when a file cannot be
/// written.
[[nodiscard]] std::string writeSourcePictures(const SourceRefs& sources, const std::string& folder);

}  // namespace qelvideo
