#pragma once

#include "platform/Synchronised.h"
#include "platform/linux/core/CaptureStream.h"
#include "platform/linux/core/LinuxVideoDataOutput.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <optional>

namespace QelUtilVideo {

/// Runs one stream. Any thread.
class LinuxCaptureSession final : public AVCaptureSession {
 public:
  /// The notification centre outlives the object.
  explicit LinuxCaptureSession(NotificationCenter& center) : center_(center) {}
  ~LinuxCaptureSession() override;

  // AVCaptureSession
  [[nodiscard]] bool canAddInput(const AVCaptureInput& input) override;
  [[nodiscard]] bool canAddOutput(const AVCaptureVideoDataOutput& output) override;
  void addInput(std::shared_ptr<AVCaptureInput> input) override;
  void addOutput(std::shared_ptr<AVCaptureVideoDataOutput> output) override;
  void startRunning() override;
  void stopRunning() override;

 private:
  class Receiver;
  /// What the stream says waits until the start was told.
  enum class Phase { idle, starting, running };
  struct State {
    std::shared_ptr<LinuxCaptureInput> input;
    std::shared_ptr<LinuxVideoDataOutput> output;
    Phase phase = Phase::idle;
    std::shared_ptr<Receiver> receiver;  ///< of the stream that starts or runs
    std::unique_ptr<CaptureStream> stream;
    std::optional<NSError> earlyFailure;
    bool isInterrupted = false;                    ///< that was told, and not that it ended
    std::optional<std::string> earlyInterruption;  ///< its reason
    bool hasEarlyEnd = false;                      ///< of one that was told
  };

  /// Tells one of those things that came before the session ran; then there may be another. Else it runs.
  [[nodiscard]] bool tellEarly(const std::shared_ptr<Receiver>& receiver);
  void deliver(const Receiver& from, CMSampleBuffer sample);
  void interrupt(const Receiver& from, const std::string& reason);
  void resume(const Receiver& from);
  void fail(const Receiver& from, const NSError& error);
  void post(const char* name);
  void postInterruption(const std::string& reason);
  void postError(const NSError& error);

  NotificationCenter& center_;
  Synchronised<State> state_;
};

}  // namespace QelUtilVideo
