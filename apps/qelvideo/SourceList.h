#pragma once

#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {
class Capturable;
}

namespace qelvideo {

using SourceRefs = std::vector<std::shared_ptr<QelUtilVideo::Capturable>>;

/// The displays as a table, the windows, the cameras and the displays as devices each as one, without a line
/// feed at the end.
[[nodiscard]] std::string sourceTable(const SourceRefs& sources);
/// The sources as a JSON document.
[[nodiscard]] std::string sourceJSON(const SourceRefs& sources);

}  // namespace qelvideo
