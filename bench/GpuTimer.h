#pragma once

#include <cstdint>

namespace QelUtilVideo {

/// Times what goes to the graphics processor, whoever records it: stands between the programs of this process
/// and the driver, and puts a time stamp at the beginning and at the end of every command buffer. One thread,
/// one command buffer at a time; there is one timer at most.
class GpuTimer {
 public:
  /// Stands there from here on, once the driver's functions are loaded. `period` is that of its time stamps
  /// in nanoseconds.
  explicit GpuTimer(float period);
  GpuTimer(const GpuTimer&) = delete;
  GpuTimer& operator=(const GpuTimer&) = delete;
  /// Before the device goes.
  ~GpuTimer();

  /// Waits until the last command buffer is done, and adds how long that took. False when there was none
  /// since.
  [[nodiscard]] bool finishFrame();
  /// Per frame, in microseconds; 0 without a frame.
  [[nodiscard]] double mean() const;

 private:
  const float period_;
  double sum_ = 0;
  std::int64_t frames_ = 0;
};

}  // namespace QelUtilVideo
