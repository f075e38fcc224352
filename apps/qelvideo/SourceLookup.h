#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace QelUtilVideo {
class Capturable;
}

namespace qelvideo {

/// How a source may be named on the command line.
struct SourceName {
  std::string uniqueID;
  std::string name;
};

/// The positions of the sources that `query` may mean. The first rule that fits any source decides:
/// the whole unique ID; the number at its end, or the whole name; the beginning or the end of the unique
/// ID, or the beginning of the name in small or capital letters. An empty query means nothing.
[[nodiscard]] std::vector<std::size_t> matchingSources(std::string_view query,
                                                       const std::vector<SourceName>& sources);

/// Everything that can be captured now, displays first, the primary one before the others, then
/// windows from the front to the back.
[[nodiscard]] std::vector<std::shared_ptr<QelUtilVideo::Capturable>> availableSources();

/// The one source that `query` means; throws `Failure` when there is none or more than one.
[[nodiscard]] std::shared_ptr<QelUtilVideo::Capturable> findSource(const std::string& query);

/// Why there is nothing to capture, and what to do.
[[nodiscard]] std::string noSourcesText();

/// What the help says about naming a source.
inline constexpr const char* sourceHelp =
    "Which source: its unique ID as `qelvideo list` shows it, the number at the ID's end, its name, or any "
    "beginning or end of the ID or beginning of the name that fits one source only";

}  // namespace qelvideo
