#pragma once

#include <optional>

#include "FileDescriptor.h"

namespace qelvideo {

/// Ends waits that would last too long: reads, writes and pauses of other threads watch it. Set once, by
/// any thread.
class Cancellation {
 public:
  Cancellation();

  void set() noexcept;
  [[nodiscard]] bool isSet() const;

  /// Waits until the descriptor is ready for `events` (as in poll). False: cancelled.
  [[nodiscard]] bool waitFor(int descriptor, short events) const;
  /// Waits for that long. False: cancelled.
  [[nodiscard]] bool pause(double seconds) const;
  /// Polls readable once set.
  [[nodiscard]] int descriptor() const { return event_.get(); }

 private:
  FileDescriptor event_;
};

/// Thrown where a cancelled wait leaves work undone.
struct Cancelled {};

/// What poll takes as a timeout: milliseconds, rounded up; no seconds mean for ever.
[[nodiscard]] int pollTimeout(std::optional<double> seconds);

}  // namespace qelvideo
