#pragma once

#include <cstdint>
#include <string>

namespace qelvideo {

struct Recording;

/// The figures of one recording.
struct Statistics {
  std::uint64_t frames = 0;
  double seconds = 0;  ///< as long as these frames last, the last one included; 0 below two frames
  std::size_t width = 0;
  std::size_t height = 0;
  std::uint64_t repeated = 0;
  std::uint64_t dropped = 0;
  std::uint64_t bytes = 0;

  explicit Statistics(const Recording& recording);

  [[nodiscard]] double framesPerSecond() const;
  /// One line for people: "30 frames in 3.0 s (10.0 fps), 1920x1080", then whatever else is not 0.
  [[nodiscard]] std::string text() const;
  /// One line of JSON.
  [[nodiscard]] std::string json() const;
};

}  // namespace qelvideo
