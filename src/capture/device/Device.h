#pragma once

#include "capture/EventSequencer.h"
#include "capture/SessionDelegate.h"
#include "capture/device/Session.h"
#include "platform/Result.h"
#include "platform/Synchronised.h"

#include <memory>
#include <string>

namespace QelUtilVideo {

class Root;

namespace device {

/// One thing that device capture can capture. A started device owns a session and passes its events on to
/// the host's delegate. Lives in a shared pointer.
class Device : public SessionDelegate {
 public:
  /// Ends a capture under way at once, on this thread, without telling anybody.
  ~Device() override;

  [[nodiscard]] const std::string& logName() const override { return logName_; }
  /// The session; null while there is none.
  [[nodiscard]] std::shared_ptr<Session> session() const;
  [[nodiscard]] std::shared_ptr<CapturableOutputDelegate> delegate() const override;
  void setDelegate(const std::shared_ptr<CapturableOutputDelegate>& delegate);

  /// A session of this device; ends the process unless a kind of device has its own.
  virtual Result<std::shared_ptr<Session>> makeSession();
  bool start(const std::shared_ptr<CapturableOutputDelegate>& delegate, NSError* error) override;
  void stop() override;

 protected:
  Device(Root& root, std::string logName);

  [[nodiscard]] Root& root() const { return root_; }
  [[nodiscard]] Result<std::shared_ptr<Session>> makeSessionOf(std::shared_ptr<AVCaptureInput> input);
  /// For destructors, which may have more to say before the session goes.
  void stopAtOnce();

 private:
  struct State {
    std::shared_ptr<Session> session;
    std::weak_ptr<CapturableOutputDelegate> delegate;
  };

  Root& root_;
  const std::string logName_;
  EventSequencer events_;
  Synchronised<State> state_;
};

}  // namespace device
}  // namespace QelUtilVideo
