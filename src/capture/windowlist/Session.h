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
/// the delegate that was set when it happened. Frames go their own way and may be late for the events.
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

  /// Announces the start, on the calling thread, and starts the timer. A session that is running, or has
  /// ended, ignores it.
  void start();
  /// Ends the session: as stopped when a capture has succeeded, else as failed to start when there is an
  /// error. Ignored unless the timer runs, except that a start that is just being announced ends there.
  void stop(const NSError* error);
  /// For a target that is being destroyed: ends the session and tells nobody.
  void tearDown();
  /// Whether it was stopped or torn down; it never starts again.
  [[nodiscard]] bool hasEnded() const;

 private:
  struct State {
    bool started = false;   ///< a capture has succeeded; until stop
    bool stopped = false;   ///< never cleared
    bool paused = false;    ///< an interruption is announced
    bool starting = false;  ///< the start is announced, the timer not yet made
    bool stopping = false;  ///< a stop is under way: another one has nothing to do
    std::unique_ptr<DispatchTimerSource> timer;
    double startTime = 0;  ///< seconds; first frame of the current run of frames, 0: no run is open
    double duration = 0;   ///< seconds; sum of the closed runs
    std::int64_t count = 0;
  };
  /// The target, seen as what is told and as what is asked; one object. Empty when it is gone.
  struct Owner {
    std::shared_ptr<SessionDelegate> told;
    std::shared_ptr<CaptureSource> asked;
    explicit operator bool() const { return told && asked; }
  };

  using Event = std::function<void(SessionDelegate&)>;

  [[nodiscard]] Owner owner() const { return {target_.lock(), source_.lock()}; }
  void runTimer();
  void tick();
  // The steps of a tick that tell the target something. After each the session may have ended.
  void noteStart(const Owner& target);
  void noteInterruption(const Owner& target, double now);
  void noteFrame(const Owner& target, CVPixelBufferRef frame, double now);
  void output(const CVPixelBufferRef& frame, double timestamp);
  /// Changes the state, under its lock, then tells the target, without it, the event that `change` answers
  /// (none: an empty one).
  void report(const Owner& target, const std::function<Event(State&)>& change);

  Platform& platform_;
  const std::string logName_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::weak_ptr<SessionDelegate> target_;
  const std::weak_ptr<CaptureSource> source_;
  Synchronised<State> state_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
