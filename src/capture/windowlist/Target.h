#pragma once

#include "capture/SessionDelegate.h"
#include "capture/windowlist/CaptureSource.h"
#include "platform/Synchronised.h"

#include <memory>
#include <string>

namespace QelUtilVideo {

class Platform;

namespace windowlist {

class Session;

/// One thing that window-list capture can capture. A started target owns a session, which asks it for
/// frames; the target passes the session's events on to the host's delegate. Lives in a shared pointer.
class Target : public SessionDelegate, public CaptureSource {
 public:
  /// Ends a capture under way without telling anybody.
  ~Target() override;

  [[nodiscard]] const std::string& logName() const override { return logName_; }
  /// The session; null while stopped.
  [[nodiscard]] virtual std::shared_ptr<Session> session() const;
  [[nodiscard]] std::shared_ptr<CapturableOutputDelegate> delegate() const override;
  virtual void setDelegate(const std::shared_ptr<CapturableOutputDelegate>& delegate);

  /// Always succeeds and leaves `error` alone.
  bool start(const std::shared_ptr<CapturableOutputDelegate>& delegate, NSError* error) override;
  void stop() override;

  /// Each kind of target has its own: this one ends the process.
  Result<CVPixelBufferRef> capture() override;

 protected:
  Target(Platform& platform, std::string logName);

  [[nodiscard]] Platform& platform() const { return platform_; }
  /// For destructors that have more to say afterwards.
  void tearDownSession();

 private:
  struct State {
    std::shared_ptr<Session> session;
    std::weak_ptr<CapturableOutputDelegate> delegate;
  };

  /// Puts a new session in the place of `ended` (null: of none), together with the delegate. Answers the
  /// session in place: the new one, unless another thread was quicker.
  std::shared_ptr<Session> replaceSession(const std::shared_ptr<Session>& ended,
                                          const std::shared_ptr<Session>& fresh,
                                          const std::shared_ptr<CapturableOutputDelegate>& delegate);

  Platform& platform_;
  const std::string logName_;
  Synchronised<State> state_;
};

}  // namespace windowlist
}  // namespace QelUtilVideo
