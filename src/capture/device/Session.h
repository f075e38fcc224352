#pragma once

#include "capture/SessionDelegate.h"
#include "platform/CaptureDevices.h"
#include "platform/Result.h"
#include "platform/Synchronised.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace QelUtilVideo {

class DispatchQueue;
class EventSequencer;
class Root;

namespace device {

/// Runs the platform's capture session for one device, turns what it tells into events for its delegate, and
/// hands each frame on as it is, with the time at which it arrived.
///
/// Starting and stopping happen on a serial queue of its own, so that nobody waits for a device. Events come
/// on the thread of their cause, in the order in which they happened: one that happens while another thread
/// is telling the delegate of an earlier one is told by that thread, afterwards, to whoever was to be told
/// when it happened. Any thread may call it and drop the last reference, from inside an event or a frame too.
/// What is queued keeps the session alive until it has run.
class Session final : public AVCaptureVideoDataOutputSampleBufferDelegate,
                      public std::enable_shared_from_this<Session> {
  struct Key {};

 public:
  enum class Error { cannotAddInput, cannotAddOutput };

  /// Fails, silently, when the platform's session takes the input or an output not. The delegate is held
  /// weakly; `events` belongs to it.
  static Result<std::shared_ptr<Session>> make(Root& root, std::shared_ptr<AVCaptureInput> input,
                                               const std::shared_ptr<SessionDelegate>& delegate,
                                               EventSequencer& events, std::string logName);
  struct Parts;
  Session(Key, Root& root, Parts parts, const std::shared_ptr<SessionDelegate>& delegate,
          EventSequencer& events, std::string logName);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  /// Logs the statistics. Does not stop the platform's session: the owner does.
  ~Session() override;

  void start();
  void stop();

  [[nodiscard]] const std::shared_ptr<AVCaptureSession>& session() const { return session_; }
  [[nodiscard]] const std::shared_ptr<AVCaptureInput>& input() const { return input_; }
  [[nodiscard]] const std::shared_ptr<AVCaptureVideoDataOutput>& output() const { return output_; }

  // What the notification centre calls, on any thread.
  void runtimeError(const NSNotification& notification);
  void didStartRunning(const NSNotification& notification);
  void didStopRunning(const NSNotification& notification);
  void didBeginInterruption(const NSNotification& notification);
  void didEndInterruption(const NSNotification& notification);

  // AVCaptureVideoDataOutputSampleBufferDelegate
  void captureOutput(AVCaptureVideoDataOutput& output, const CMSampleBuffer& sample) override;

 private:
  struct State {
    bool started = false;   ///< from the platform's start to the stop that matches it
    bool stopped = false;   ///< from a stop to the next start
    bool released = false;  ///< the same, but for stops after errors: the source has another session, or none
    int starts = 0;         ///< that were asked for
    int untoldStarts = 0;   ///< that happened, and of which the delegate is still to be told
    double startTime = 0;   ///< seconds; of the current measuring interval, 0: none is open
    double duration = 0;    ///< seconds; sum of the closed intervals
    std::int64_t outputCount = 0;
    std::int64_t failedCount = 0;
  };
  using Event = std::function<void(SessionDelegate&)>;
  using Handler = void (Session::*)(const NSNotification&);

  void observe();
  void observe(const char* name, Handler handler);
  void configure();
  void startRunning();
  void stopRunning();
  void queueStop();
  void closeInterval(State& state) const;
  /// Changes the state, under its lock, then tells the delegate, without it, the event that `change` answers
  /// (none: an empty one).
  void report(const std::function<Event(State&)>& change);

  Root& root_;
  const std::string logName_;
  const std::shared_ptr<DispatchQueue> queue_;
  const std::shared_ptr<AVCaptureSession> session_;
  const std::shared_ptr<AVCaptureVideoDataOutput> output_;
  const std::shared_ptr<AVCaptureInput> input_;
  const std::weak_ptr<SessionDelegate> delegate_;
  EventSequencer& events_;  ///< of the delegate: used only while that is held
  Synchronised<State> state_;
  std::vector<NotificationCenter::Token> observers_;
};

[[nodiscard]] NSError makeError(Session::Error error);

}  // namespace device
}  // namespace QelUtilVideo
