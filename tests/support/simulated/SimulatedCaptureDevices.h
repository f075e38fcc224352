#pragma once

#include "platform/CaptureDevices.h"
#include "platform/Dispatch.h"
#include "platform/Synchronised.h"

#include <QelUtilVideo/platform/NotificationCenter.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace QelUtilVideo {

/// A device as the test has it.
class SimulatedDevice final : public AVCaptureDevice {
 public:
  explicit SimulatedDevice(std::string id, std::string name = "Camera", bool isVideo = true)
      : id_(std::move(id)), name_(std::move(name)), isVideo_(isVideo) {}

  [[nodiscard]] std::string uniqueID() const override { return id_; }
  [[nodiscard]] std::string localizedName() const override { return name_; }
  [[nodiscard]] bool isConnected() const override { return connected; }
  [[nodiscard]] bool hasMediaType(AVMediaType type) const override {
    return (type == AVMediaType::video) == isVideo_;
  }

  std::atomic<bool> connected = true;

 private:
  const std::string id_, name_;
  const bool isVideo_;
};

/// An input knows what it is of.
struct SimulatedInput final : AVCaptureInput {
  explicit SimulatedInput(std::string name) : source(std::move(name)) {}
  const std::string source;  ///< the device's ID, or the display's
};

class SimulatedVideoOutput final : public AVCaptureVideoDataOutput {
 public:
  void setSampleBufferDelegate(std::weak_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate,
                               std::shared_ptr<DispatchQueue> queue) override {
    receiver_.with([&](Receiver& receiver) { receiver = {std::move(delegate), std::move(queue)}; });
  }
  /// Queues a sample for whoever takes them.
  void deliver(CMSampleBuffer sample) {
    const Receiver receiver = receiver_.copy();
    if (!receiver.queue) return;
    const std::shared_ptr<SimulatedVideoOutput> self(shared_from_this(), this);
    receiver.queue->async([self, to = receiver.delegate, sample] {
      if (const auto delegate = to.lock()) delegate->captureOutput(*self, sample);
    });
  }

 private:
  struct Receiver {
    std::weak_ptr<AVCaptureVideoDataOutputSampleBufferDelegate> delegate;
    std::shared_ptr<DispatchQueue> queue;
  };
  Synchronised<Receiver> receiver_;
};

/// Starts and stops as it is asked to, and posts what it does on the thread that asks.
class SimulatedCaptureSession final : public AVCaptureSession {
 public:
  /// What a start comes to.
  using Start = std::function<void(SimulatedCaptureSession&)>;

  SimulatedCaptureSession(NotificationCenter& center, bool takesInput, bool takesOutput, Start start)
      : center_(center), takesInput_(takesInput), takesOutput_(takesOutput), start_(std::move(start)) {}

  [[nodiscard]] bool canAddInput(const AVCaptureInput&) override { return takesInput_; }
  [[nodiscard]] bool canAddOutput(const AVCaptureVideoDataOutput&) override { return takesOutput_; }
  void addInput(std::shared_ptr<AVCaptureInput> input) override {
    parts_.with([&](Parts& parts) { parts.first = std::move(input); });
  }
  void addOutput(std::shared_ptr<AVCaptureVideoDataOutput> output) override {
    parts_.with([&](Parts& parts) { parts.second = std::move(output); });
  }
  void startRunning() override {
    ++starts;
    if (start_) return start_(*this);
    run();
  }
  void stopRunning() override {
    ++stops;
    if (isRunning.exchange(false)) post(AVCaptureSessionDidStopRunningNotification);
  }

  void run() {
    if (!isRunning.exchange(true)) post(AVCaptureSessionDidStartRunningNotification);
  }
  void post(const char* name, Dictionary userInfo = {}) {
    center_.postNotificationName(name, shared_from_this(), std::move(userInfo));
  }
  /// A sample of the input; of nothing while there is no output.
  void deliver(CVPixelBufferRef frame, double presentationTime = 0) {
    const auto output = std::dynamic_pointer_cast<SimulatedVideoOutput>(parts_.copy().second);
    if (output) output->deliver({std::move(frame), presentationTime});
  }
  /// What the input is of; empty when there is none.
  [[nodiscard]] std::string source() const {
    const auto input = std::dynamic_pointer_cast<SimulatedInput>(parts_.copy().first);
    return input ? input->source : "";
  }

  std::atomic<bool> isRunning = false;
  std::atomic<int> starts = 0, stops = 0;

 private:
  using Parts = std::pair<std::shared_ptr<AVCaptureInput>, std::shared_ptr<AVCaptureVideoDataOutput>>;
  NotificationCenter& center_;
  const bool takesInput_, takesOutput_;
  const Start start_;
  Synchronised<Parts> parts_;
};

/// Devices as the test lists them.
class SimulatedCaptureDevices final : public CaptureDevices {
 public:
  explicit SimulatedCaptureDevices(NotificationCenter& center) : center_(center) {}

  struct Behaviour {
    std::optional<NSError> inputError = {};  ///< what an input of a device fails with
    bool hasScreenInputs = true;
    bool takesInput = true;
    bool takesOutput = true;
    SimulatedCaptureSession::Start start = {};  ///< absent: sessions run
  };
  /// Of what is made from now on.
  void behave(Behaviour behaviour) {
    behaviour_.with([&](Behaviour& current) { current = std::move(behaviour); });
  }
  using Devices = std::vector<std::shared_ptr<AVCaptureDevice>>;
  /// Replaces the devices. Tells nobody.
  void set(Devices devices) {
    devices_.with([&](Devices& current) { std::swap(current, devices); });
  }
  void postConnected(std::shared_ptr<NSObject> device) {
    center_.postNotificationName(AVCaptureDeviceWasConnectedNotification, std::move(device));
  }
  void postDisconnected(std::shared_ptr<NSObject> device) {
    center_.postNotificationName(AVCaptureDeviceWasDisconnectedNotification, std::move(device));
  }
  /// Every session made so far that lives.
  [[nodiscard]] std::vector<std::shared_ptr<SimulatedCaptureSession>> sessions() const {
    std::vector<std::shared_ptr<SimulatedCaptureSession>> alive;
    for (const auto& session : sessions_.copy()) {
      if (auto found = session.lock()) alive.push_back(std::move(found));
    }
    return alive;
  }

  // CaptureDevices
  [[nodiscard]] Devices devicesWithMediaType(AVMediaType type) override {
    Devices devices = devices_.copy();
    std::erase_if(devices, [type](const auto& device) { return !device->hasMediaType(type); });
    return devices;
  }
  [[nodiscard]] Result<std::shared_ptr<AVCaptureInput>> makeDeviceInput(
      const std::shared_ptr<AVCaptureDevice>& device) override {
    if (const auto error = behaviour_.copy().inputError) return *error;
    return std::shared_ptr<AVCaptureInput>(std::make_shared<SimulatedInput>(device->uniqueID()));
  }
  [[nodiscard]] std::shared_ptr<AVCaptureInput> makeScreenInput(CGDirectDisplayID display) override {
    if (!behaviour_.copy().hasScreenInputs) return nullptr;
    return std::make_shared<SimulatedInput>(std::to_string(display));
  }
  [[nodiscard]] std::shared_ptr<AVCaptureSession> makeSession() override {
    const Behaviour behaviour = behaviour_.copy();
    auto session = std::make_shared<SimulatedCaptureSession>(center_, behaviour.takesInput,
                                                             behaviour.takesOutput, behaviour.start);
    sessions_.with([&](auto& all) { all.push_back(session); });
    return session;
  }
  [[nodiscard]] std::shared_ptr<AVCaptureVideoDataOutput> makeVideoDataOutput() override {
    return std::make_shared<SimulatedVideoOutput>();
  }

 private:
  NotificationCenter& center_;
  Synchronised<Behaviour> behaviour_;
  Synchronised<Devices> devices_;
  Synchronised<std::vector<std::weak_ptr<SimulatedCaptureSession>>> sessions_;
};

}  // namespace QelUtilVideo
