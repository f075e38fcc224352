#pragma once

#include <functional>
#include <optional>

namespace qelvideo {

/// The program's event loop on the main thread: gives the library's main queue its time and ends early
/// when the person presses Ctrl-C or the process is told to terminate. A second Ctrl-C ends the process
/// at once. One per process; main thread.
class HostLoop {
 public:
  enum class End { done, interrupted, timedOut };
  enum class Interruption { heed, ignore };

  HostLoop();
  HostLoop(const HostLoop&) = delete;
  HostLoop& operator=(const HostLoop&) = delete;

  /// Runs until `done` is true. It is asked after each piece of main-queue work, so whoever changes its
  /// answer on another thread calls `wake`. An interruption that came before counts.
  End runUntil(const std::function<bool()>& done, std::optional<double> seconds = std::nullopt,
               Interruption interruption = Interruption::heed);
  [[nodiscard]] bool interrupted() const;

  /// Has `runUntil` ask again. Any thread.
  static void wake();
};

}  // namespace qelvideo
