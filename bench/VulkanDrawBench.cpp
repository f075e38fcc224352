// What drawing through the library costs on the machine's own Vulkan driver, beside the least that a Vulkan
// program of the same kind can do: `Time` is that of one frame after the other until each is done, `CPU` the
// main thread's part of it, `gpu_us` the graphics processor's between time stamps (of a software driver, its
// threads').
//
//   build/bench/bin/vulkan_draw_bench --benchmark_repetitions=3

#include "GpuTimer.h"
#include "MetalStage.h"
#include "MinimalDraw.h"

#include <benchmark/benchmark.h>

#include <cstdint>

namespace {

using namespace QelUtilVideo;

FrameSize sizeOf(const benchmark::State& state) {
  return {static_cast<std::size_t>(state.range(0)), static_cast<std::size_t>(state.range(1))};
}

/// Draws a frame per iteration, which is done when the processor is done with it; whoever finds it busy yet
/// draws none, and is asked again.
template <class Draw>
void drawFrames(benchmark::State& state, float period, Draw draw) {
  GpuTimer timer(period);
  for (auto _ : state) {
    do draw();
    while (!timer.finishFrame());
  }
  state.counters["gpu_us"] = timer.mean();
}

float timestampPeriod() {
  static const float period = MinimalDevice().timestampPeriod();
  return period;
}

void minimal(benchmark::State& state, bool isNew) {
  const FrameSize size = sizeOf(state);
  const CVPixelBufferRef frame = makeFrame(size, FrameMemory::library);
  MinimalDraw program(static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height));
  program.draw(frame.get());
  program.device().wait();
  drawFrames(state, program.device().timestampPeriod(), [&] { program.draw(isNew ? frame.get() : nullptr); });
}

void library(benchmark::State& state, FrameMemory memory, bool isNew) {
  const float period = timestampPeriod();
  MetalStage stage(sizeOf(state), memory);
  drawFrames(state, period, [&] {
    if (isNew) {
      stage.showNewFrame();
    } else {
      stage.changeSetting();
    }
    stage.refresh();
  });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"w", "h"})->Args({1920, 1080})->Args({3840, 2160});
  benchmark->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK_CAPTURE(minimal, newFrame, true)->Apply(sizes);
BENCHMARK_CAPTURE(library, newFrameInPlace, FrameMemory::library, true)->Apply(sizes);
BENCHMARK_CAPTURE(library, newFrameCopied, FrameMemory::host, true)->Apply(sizes);
BENCHMARK_CAPTURE(minimal, sameFrame, false)->Apply(sizes);
BENCHMARK_CAPTURE(library, sameFrame, FrameMemory::library, false)->Apply(sizes);

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
