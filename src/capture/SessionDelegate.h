#pragma once

#include <QelUtilVideo/Capturable.h>
#include <QelUtilVideo/platform/CVPixelBuffer.h>
#include <QelUtilVideo/platform/Dictionary.h>

#include <memory>
#include <string>

namespace QelUtilVideo {

/// How a capture session reports to the source that owns it. Each operation has a default, which every
/// source uses as it is: it writes one log line (none for a frame), then calls the method of the same
/// name of the host's delegate, if there is one, on the calling thread, with the source as first
/// argument. No lock is held. A delegate that throws is reported to the system log and otherwise ignored.
///
/// The caller keeps the source alive for the length of the call. Any thread.
class SessionDelegate : public virtual Capturable {
 public:
  /// What the source's log lines begin with; fixed at construction.
  [[nodiscard]] virtual const std::string& logName() const = 0;

  virtual void sessionWillStartRunning();
  virtual void sessionDidFailToStartRunning(const NSError& error);
  virtual void sessionDidStartRunning();
  /// `error` is null when the session was asked to stop.
  virtual void sessionDidStopRunning(const NSError* error);
  /// `userInfo` may be null.
  virtual void sessionDidBeginInterruption(const Dictionary* userInfo);
  virtual void sessionDidEndInterruption();
  /// `timestamp` is in seconds of the media clock.
  virtual void sessionDidOutput(const CVPixelBufferRef& pixelBuffer, double timestamp);
};

/// While it lives, what this thread relays for the source goes to the given delegate instead of the
/// source's current one. An event that one thread delivers for another thus reaches the delegate that
/// was set when it happened, although the source may have been stopped meanwhile. Scopes nest.
class EventAddressee {
 public:
  EventAddressee(const SessionDelegate& source, std::weak_ptr<CapturableOutputDelegate> delegate);
  EventAddressee(const EventAddressee&) = delete;
  EventAddressee& operator=(const EventAddressee&) = delete;
  ~EventAddressee();

  /// The delegate that what happens to the source now is relayed to on this thread; may be null.
  [[nodiscard]] static std::shared_ptr<CapturableOutputDelegate> of(const SessionDelegate& source);

 private:
  const SessionDelegate& source_;
  std::weak_ptr<CapturableOutputDelegate> delegate_;
  const EventAddressee* outer_;
};

}  // namespace QelUtilVideo
