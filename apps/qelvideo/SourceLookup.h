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

/// Everything that can be captured now: displays, the primary one before the others, windows from the front
/// to the back, cameras, and the displays once more as devices, which stream.
[[nodiscard]] std::vector<std::shared_ptr<QelUtilVideo::Capturable>> availableSources();

/// The one source that `query` means; a display goes before its device. Throws `Failure` when there is none
/// or more than one.
[[nodiscard]] std::shared_ptr<QelUtilVideo::Capturable> findSource(const std::string& query);

/// Whether the source is a display as a device.
[[nodiscard]] bool isDisplayDevice(const QelUtilVideo::Capturable& source);

/// How many frames a second the source gives when all is well: 30 of a device, 10 of others.
[[nodiscard]] int framesPerSecond(const QelUtilVideo::Capturable& source);

/// Why there is nothing to capture, and what to do.
[[nodiscard]] std::string noSourcesText();

/// What the help says about naming a source.
inline constexpr const char* sourceHelp =
    "Which source: its unique ID as `qelvideo list` shows it, the number at the ID's end, its name, or any "
    "beginning or end of the ID or beginning of the name that fits one source only";

}  // namespace qelvideo
