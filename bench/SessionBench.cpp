// What the timed session adds to each capture: from the tick on the main thread to the frame in the host's
// delegate, with a source that costs nothing.
//
//   build/bench/bin/session_bench

#include "WrappedPlatform.h"
#include "capture/windowlist/Session.h"
#include "capture/windowlist/Target.h"
#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Root.h"

#include <QelUtilVideo/CapturableOutputDelegate.h>
#include <QelUtilVideo/Logger.h>
#include <QelUtilVideo/platform/MainLoop.h>

#include <benchmark/benchmark.h>

#include <atomic>

namespace {

using namespace QelUtilVideo;

/// The real machine, except that the session's timer fires when the benchmark says so.
class HandFiredTimer final : public DispatchTimerSource {
 public:
  explicit HandFiredTimer(std::function<void()>& slot) : slot_(slot) {}
  ~HandFiredTimer() override { slot_ = nullptr; }
  void setEventHandler(std::function<void()> handler) override { slot_ = std::move(handler); }
  void schedule(double, double) override {}
  void resume() override {}
  void cancel() override { slot_ = nullptr; }

 private:
  std::function<void()>& slot_;
};

class HandFiredDispatch final : public Dispatch {
 public:
  explicit HandFiredDispatch(Dispatch& real) : real_(real) {}
  MainLoop& mainLoop() override { return real_.mainLoop(); }
  std::shared_ptr<DispatchQueue> mainQueue() override { return real_.mainQueue(); }
  std::shared_ptr<DispatchQueue> makeQueue(std::string label) override {
    return real_.makeQueue(std::move(label));
  }
  std::unique_ptr<DispatchTimerSource> makeTimerSource(const std::shared_ptr<DispatchQueue>&) override {
    return std::make_unique<HandFiredTimer>(fire);
  }
  std::unique_ptr<DispatchDataAddSource> makeDataAddSource(
      const std::shared_ptr<DispatchQueue>& queue) override {
    return real_.makeDataAddSource(queue);
  }
  void setDeadlockHandler(DeadlockHandler handler) override { real_.setDeadlockHandler(std::move(handler)); }

  std::function<void()> fire;

 private:
  Dispatch& real_;
};

class HandFiredMachine final : public WrappedPlatform {
 public:
  HandFiredDispatch& dispatch() override { return dispatch_; }

 private:
  HandFiredDispatch dispatch_{real().dispatch()};
};

class FreeTarget final : public windowlist::Target {
 public:
  explicit FreeTarget(Platform& machine) : Target(machine, "[Bench]") {
    static_cast<void>(CVPixelBufferCreate(1920, 1080, kCVPixelFormatType_32BGRA, frame_));
  }
  std::string uniqueID() const override { return "bench"; }
  std::string name() const override { return "bench"; }
  bool isAvailable() const override { return true; }
  bool isCamera() const override { return false; }
  bool isScreen() const override { return true; }
  bool isWindow() const override { return false; }
  Result<CVPixelBufferRef> capture() override { return frame_; }

 private:
  CVPixelBufferRef frame_;
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
    frames.fetch_add(1);
    frames.notify_one();
  }
  std::atomic<std::int64_t> frames{0};
};

/// CPU time is the whole process's, the delivery thread's included.
void deliverOneFrame(benchmark::State& state) {
  const ScopedMachine<HandFiredMachine> machine;
  std::function<void()>& fire = machine->dispatch().fire;
  const auto target = std::make_shared<FreeTarget>(Root::current().platform());
  const auto counter = std::make_shared<Counter>();
  target->start(counter, nullptr);
  std::int64_t expected = 0;
  for (auto _ : state) {
    fire();
    ++expected;
    for (std::int64_t seen = counter->frames; seen < expected; seen = counter->frames) {
      counter->frames.wait(seen);
    }
  }
  target->stop();
}
BENCHMARK(deliverOneFrame)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
