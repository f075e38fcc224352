// What the blur adds to a frame that is drawn through Vulkan, at its strongest, both by the Gaussian of the
// processor and by the library's own kernel, beside a blur without any art and a plain copy of the frame. On
// a software driver the large frames take seconds each.
//
//   build/bench/bin/vulkan_blur_bench --benchmark_filter=w:160
//   build/bench/bin/vulkan_blur_bench --benchmark_filter='w:(1920|3840)'
//
// `gpu_us` is the graphics processor's time between time stamps.

#include "DirectBlur.h"
#include "GpuTimer.h"
#include "MetalStage.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>

namespace {

using namespace QelUtilVideo;

constexpr float kLargestSigma = 16;

FrameSize sizeOf(const benchmark::State& state) {
  return {static_cast<std::size_t>(state.range(0)), static_cast<std::size_t>(state.range(1))};
}

template <class Draw>
void drawFrames(benchmark::State& state, float period, Draw draw) {
  GpuTimer timer(period);
  for (auto _ : state) {
    do draw();
    while (!timer.finishFrame());
  }
  state.counters["gpu_us"] = timer.mean();
}

void library(benchmark::State& state, float blurRadius, bool isProcessorsOwn) {
  static const float period = MinimalDevice().timestampPeriod();
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no threads that read it
  ::setenv("QelUtilVideoRenderViewMPSDisabled", isProcessorsOwn ? "0" : "1", 1);
  MetalStage stage(sizeOf(state), FrameMemory::library);
  stage.setBlurRadius(blurRadius);
  stage.refresh();
  drawFrames(state, period, [&] {
    stage.changeSetting();
    stage.refresh();
  });
}

void sharp(benchmark::State& state) { library(state, 0, true); }
void gaussianOfTheProcessor(benchmark::State& state) { library(state, 1, true); }
void ownKernel(benchmark::State& state) { library(state, 1, false); }

void direct(benchmark::State& state) {
  DirectBlur program(static_cast<std::uint32_t>(state.range(0)), static_cast<std::uint32_t>(state.range(1)));
  drawFrames(state, program.device().timestampPeriod(), [&] { program.blur(kLargestSigma); });
}

void plainCopy(benchmark::State& state) {
  DirectBlur program(static_cast<std::uint32_t>(state.range(0)), static_cast<std::uint32_t>(state.range(1)));
  drawFrames(state, program.device().timestampPeriod(), [&] { program.copy(); });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"w", "h"})->Args({160, 90})->Args({1920, 1080})->Args({3840, 2160});
  benchmark->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(sharp)->Apply(sizes);
BENCHMARK(gaussianOfTheProcessor)->Apply(sizes);
BENCHMARK(ownKernel)->Apply(sizes);
BENCHMARK(direct)->Apply(sizes);
BENCHMARK(plainCopy)->Apply(sizes);

}  // namespace

int main(int argc, char** argv) {
  // Loads the driver's functions.
  { const MetalStage first({16, 16}, FrameMemory::library); }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
