#pragma once

#include <chrono>
#include <string>

namespace QelUtilVideo {
class Capturable;
}

namespace qelvideo {

/// Something that can be captured was there at first, came or went.
struct SourceEvent {
  enum class What { present, connected, disconnected };

  std::chrono::system_clock::time_point time;
  What what = What::present;
  std::string kind;  ///< "display", "window", "camera" or "display device"
  std::string name;
  std::string uniqueID;

  /// What happens to this source now.
  [[nodiscard]] static SourceEvent now(What what, const QelUtilVideo::Capturable& source);

  /// One line for people, with the local time of day. Control characters of the name are shown as "?".
  [[nodiscard]] std::string text() const;
  /// One JSON object on one line, with the time in UTC as in "2030-01-31T23:59:59.125Z".
  [[nodiscard]] std::string json() const;
};

}  // namespace qelvideo
