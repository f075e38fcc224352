// What the device session adds to each frame of a camera: from the platform's sample to the host's delegate,
// with a count of the allocations.
//
//   build/bench/bin/device_session_bench

#include "WrappedPlatform.h"
#include "capture/device/CameraDevice.h"
#include "capture/device/Session.h"
#include "platform/CaptureDevices.h"
#include "platform/linux/core/LinuxVideoDataOutput.h"

#include <QelUtilVideo/CapturableOutputDelegate.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::int64_t> allocations{0};
}

// NOLINTBEGIN(cppcoreguidelines-no-malloc)
[[gnu::noinline]] void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

using namespace QelUtilVideo;

struct NoInput final : AVCaptureInput {};

/// Takes what it is given, and streams nothing by itself.
struct IdleSession final : AVCaptureSession {
  bool canAddInput(const AVCaptureInput&) override { return true; }
  bool canAddOutput(const AVCaptureVideoDataOutput&) override { return true; }
  void addInput(std::shared_ptr<AVCaptureInput>) override {}
  void addOutput(std::shared_ptr<AVCaptureVideoDataOutput>) override {}
  void startRunning() override {}
  void stopRunning() override {}
};

struct NoCamera final : AVCaptureDevice {
  std::string uniqueID() const override { return "bench"; }
  std::string localizedName() const override { return "bench"; }
  bool isConnected() const override { return true; }
  bool hasMediaType(AVMediaType) const override { return true; }
};

class IdleDevices final : public CaptureDevices {
 public:
  std::vector<std::shared_ptr<AVCaptureDevice>> devicesWithMediaType(AVMediaType) override { return {}; }
  Result<std::shared_ptr<AVCaptureInput>> makeDeviceInput(const std::shared_ptr<AVCaptureDevice>&) override {
    return std::shared_ptr<AVCaptureInput>(std::make_shared<NoInput>());
  }
  std::shared_ptr<AVCaptureInput> makeScreenInput(CGDirectDisplayID) override { return nullptr; }
  std::shared_ptr<AVCaptureSession> makeSession() override { return std::make_shared<IdleSession>(); }
  std::shared_ptr<AVCaptureVideoDataOutput> makeVideoDataOutput() override {
    return std::make_shared<LinuxVideoDataOutput>();
  }
};

class IdleMachine final : public WrappedPlatform {
 public:
  CaptureDevices& captureDevices() override { return devices_; }

 private:
  IdleDevices devices_;
};

class Counter final : public CapturableOutputDelegate {
 public:
  void capturableWillStartRunning(const std::shared_ptr<Capturable>&) override {}
  void capturableDidFailToStartRunning(const std::shared_ptr<Capturable>&, const NSError&) override {}
  void capturableDidStartRunning(const std::shared_ptr<Capturable>&) override {}
  void capturableDidStopRunning(const std::shared_ptr<Capturable>&, const NSError*) override {}
  void capturableDidBeginInterruption(const std::shared_ptr<Capturable>&, const Dictionary*) override {}
  void capturableDidEndInterruption(const std::shared_ptr<Capturable>&) override {}
  void capturableDidOutput(const std::shared_ptr<Capturable>&, const CVPixelBufferRef&, double) override {
    ++frames;
  }
  std::int64_t frames = 0;
};

void deliverOneFrame(benchmark::State& state) {
  const ScopedMachine<IdleMachine> machine;
  const auto camera = device::CameraDevice::make(Root::current(), std::make_shared<NoCamera>());
  const auto counter = std::make_shared<Counter>();
  if (!camera->start(counter, nullptr)) return state.SkipWithError("the camera does not start");
  const auto session = camera->session();
  const auto output = machine->captureDevices().makeVideoDataOutput();
  CMSampleBuffer sample;
  static_cast<void>(
      CVPixelBufferCreate(1280, 720, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, sample.imageBuffer));
  const std::int64_t before = allocations;
  for (auto _ : state) session->captureOutput(*output, sample);
  state.counters["allocations"] =
      benchmark::Counter(static_cast<double>(allocations - before), benchmark::Counter::kAvgIterations);
  if (counter->frames == 0) state.SkipWithError("no frame came");
  camera->stop();
}
BENCHMARK(deliverOneFrame);

}  // namespace

BENCHMARK_MAIN();
