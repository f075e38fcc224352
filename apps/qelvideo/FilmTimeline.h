#pragma once

#include <cstdint>
#include <optional>

namespace qelvideo {

/// Places frames that come at uneven times on the even grid of a film, so that the film keeps time. A
/// frame may lie up to one grid step beside its true place; only beyond that is the last frame repeated
/// or a frame left out, and a merely unsteady source loses nothing.
class FilmTimeline {
 public:
  explicit FilmTimeline(double framesPerSecond) : framesPerSecond_(framesPerSecond) {}

  struct Placement {
    std::uint64_t repeats = 0;  ///< how often the last frame goes out again first
    bool written = false;       ///< whether the frame itself goes out
  };
  /// Places the next frame; times are in seconds and do not decrease.
  Placement place(double timestamp);
  /// How often the last frame goes out again so that the film lasts until this time.
  std::uint64_t extendTo(double time);

  /// Frames of the film so far, repeated ones included.
  [[nodiscard]] std::uint64_t length() const { return length_; }

 private:
  [[nodiscard]] double position(double time) const;

  double framesPerSecond_;
  std::optional<double> start_;
  std::uint64_t length_ = 0;
};

}  // namespace qelvideo
