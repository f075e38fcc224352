#include "FilmTimeline.h"

#include <cmath>

namespace qelvideo {

namespace {

/// Timestamps are sums of decimal fractions; a whole step may come out a little short.
constexpr double roundingSlack = 1e-6;

}  // namespace

FilmTimeline::Placement FilmTimeline::place(double timestamp) {
  if (!start_) start_ = timestamp;
  Placement placement;
  placement.repeats = extendTo(timestamp);
  placement.written = static_cast<double>(length_) - position(timestamp) < 1 - roundingSlack;
  if (placement.written) ++length_;
  return placement;
}

std::uint64_t FilmTimeline::extendTo(double time) {
  if (length_ == 0) return 0;
  const double missing = position(time) - static_cast<double>(length_) + roundingSlack;
  if (!(missing >= 1)) return 0;
  const auto repeats = static_cast<std::uint64_t>(std::floor(missing));
  length_ += repeats;
  return repeats;
}

double FilmTimeline::position(double time) const { return (time - start_.value_or(time)) * framesPerSecond_; }

}  // namespace qelvideo
