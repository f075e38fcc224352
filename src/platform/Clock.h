#pragma once

namespace QelUtilVideo {

/// The media clock. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  /// Seconds, monotonic; never 0.
  [[nodiscard]] virtual double CACurrentMediaTime() = 0;
};

}  // namespace QelUtilVideo
