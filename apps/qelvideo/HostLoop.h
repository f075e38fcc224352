#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace qelvideo {

/// The program's event loop on the main thread: gives the library's main queue its time and ends early
/// when the person presses Ctrl-C or the process is told to terminate. A second Ctrl-C ends the process
/// at once. One per process; main thread.
class HostLoop {
 public:
  enum class End { done, interrupted, timedOut };
  enum class Interruption { heed, ignore };
  /// A descriptor that the loop watches while somebody else holds this.
  struct Watch {
    int descriptor;
    short events;  ///< as for poll; its end and its errors are always watched
    std::function<void(short events)> ready;
  };

  HostLoop();
  HostLoop(const HostLoop&) = delete;
  HostLoop& operator=(const HostLoop&) = delete;

  /// Runs until `done` is true. It is asked after each piece of main-queue work, so whoever changes its
  /// answer on another thread calls `wake`. An interruption that came before counts.
  End runUntil(const std::function<bool()>& done, std::optional<double> seconds = std::nullopt,
               Interruption interruption = Interruption::heed);
  [[nodiscard]] bool interrupted() const;

  /// While `runUntil` runs, `ready` is called with what poll says about the descriptor. It has to make that
  /// untrue or to drop the watch, which may go while its own function is called. The descriptor stays open
  /// for as long as the watch lives.
  [[nodiscard]] std::shared_ptr<Watch> watch(int descriptor, short events,
                                             std::function<void(short events)> ready);

  /// Has `runUntil` ask again. Any thread.
  static void wake();

 private:
  void wait(std::optional<double> seconds, Interruption interruption);

  std::vector<std::weak_ptr<Watch>> watches_;
};

}  // namespace qelvideo
