#pragma once

#include "platform/Synchronised.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/NSError.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace QelUtilVideo {

class DispatchQueue;
class DispatchTimerSource;
class Platform;
class SessionDelegate;

namespace windowlist {

class CaptureSource;

/// Makes a stream of frames and events out of a target that can be asked for one frame: asks it on the
/// main thread ten times a second, hands frames to it on a serial queue of its own, and tells it when
/// frames begin, pause, flow again and end. Used once: start, stop, gone.
///
/// Any thread may start and stop it and drop the last reference to it, also from inside any of the
/// events. No lock is held while the target is asked or told. Events keep their order: one that happens
/// while another thread is telling the target of an earlier one is told by that thread, afterwards, to
/// the delegate that was set when it happened. Frames wait for the events before them, and may be late
/// for those after them.
class Session final : public std::enable_shared_from_this<Session> {
  struct Key {};

 public:
  /// The target is held weakly and must be a `SessionDelegate`: anything else is a programming error
  /// and ends the process.
  static std::shared_ptr<Session> make(Platform& platform, const std::shared_ptr<CaptureSource>& target,
                                       std::string logName);
  Session(Key, Platform& platform, const std::shared_ptr<CaptureSource>& target, std::string logName);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  /// Stops asking and logs the statistics; tells nobody.
  ~Session();

  /// Announces the start, on the calling thread, and starts the timer; a session that is running ignores
  /// it. False: the session has ended and will not start any more.
  bool start();
  /// Ends the session: as stopped when a capture has succeeded, else as failed to start when there is an
  /// error. Tells nobody when the timer does not run: the session has ended already, or never starts.
  void stop(const NSError* error);
  /// For a target that is being destroyed: ends the session and tells nobody.
  void tearDown();

 private:
  struct State {
    bool started = false;   ///< a capture has succeeded; until stop
    bool stopped = false;   ///< never cleared
    bool paused = false;    ///< an interruption is announced
    bool starting = false;  ///< the start is announced, the timer not yet made
    std::unique_ptr<DispatchTimerSource> timer;
    double startTime = 0;  ///< seconds; first frame of the current run of frames, 0: no run is open
    double duration = 0;   ///< seconds; sum of the closed runs
    std::int64_t count = 0;
    std::int64_t ticks = 0;  ///< begun so far
  };
  /// The target, seen as what is told and as what is asked; one object. Empty when it is gone.
  struct Owner {
    std::shared_ptr<SessionDelegate> told;
    std::shared_ptr<CaptureSource> asked;
    explicit operator bool() const { return told && asked; }
  };

  /// One firing of the timer. A host that runs the main loop from inside a callback lets a later one in,
  /// which then has the say: the earlier one has been overtaken and changes nothing more.
  struct Tick {
    Owner target;
    double time;  ///< seconds, before the capture
    std::int64_t number;
    [[nodiscard]] bool mayChange(const State& state) const { return !state.stopped && state.ticks == number; }
  };

  using Event = std::function<void(SessionDelegate&)>;

  [[nodiscard]] Owner owner() const { return {target_.lock(), source_.lock()}; }
  void runTimer();
  void tick();
  // The steps of a tick that tell the target something. During each the session may end.
  void noteStart(const Tick& tick);
  void noteInterruption(const Tick& tick);
  void noteFrame(const Tick& tick, CVPixelBufferRef frame);
  void output(const CVPixelBufferRef& frame, double timestamp);
  /// Changes the state, under its lock, then tells the target, without it, the event that `change` answers
  /// (none: an empty one).
  void report(const Owner& target, const std::function<Event(State&)>& change);
  /// The first half of it, which tells nobody yet.
  void enqueue(const Owner& target, const std::function<Event(State&)>& change);

  Platform& platform_;
  const std::string logName_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::weak_ptr<SessionDelegate> target_;
  const std::weak_ptr<CaptureSource> source_;
  Synchronised<State> state_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
