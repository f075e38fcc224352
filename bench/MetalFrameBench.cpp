// What a view adds to the driver's own work for each refresh that draws through Vulkan: ticks, the decision,
// textures of the planes, geometry, commands, submission, over a driver that does nothing. Times are the main
// thread's; the counts, all but `links` per refresh, are what the driver was asked for.
//
//   build/bench/bin/metal_frame_bench
//
// `newFrame` of 16 × 16 pixels has next to no bytes to move, so what larger ones take longer is the copy of
// theirs. Frames of the library's own memory can be read in place by the driver (`imported`), the host's
// cannot (`staged`). A run fails when a refresh does not draw what it has to, or an idle one draws.

#include "MetalStage.h"
#include "noop_vulkan/NoOpVulkan.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

namespace {

using namespace QelUtilVideo;

NoOpVulkanCounts* counts = nullptr;

/// Puts the driver in the place of the machine's, before anybody asks for one.
bool useNoOpDriver() {
  // NOLINTBEGIN(concurrency-mt-unsafe): no threads yet
  ::setenv("VK_DRIVER_FILES", QEL_NOOP_VULKAN_MANIFEST, 1);
  ::setenv("VK_ICD_FILENAMES", QEL_NOOP_VULKAN_MANIFEST, 1);  // for older loaders
  ::setenv("VK_LOADER_LAYERS_DISABLE", "~all~", 1);
  // NOLINTEND(concurrency-mt-unsafe)
  // Stays loaded for good, and with it the counts.
  void* const driver = ::dlopen(QEL_NOOP_VULKAN, RTLD_NOW | RTLD_LOCAL);
  void* const function = driver ? ::dlsym(driver, kNoOpVulkanCounts) : nullptr;
  if (function) counts = reinterpret_cast<NoOpVulkanCountsFunction>(function)();
  return counts != nullptr;
}

/// What is counted from refresh to refresh.
struct Tally {
  std::int64_t submissions = counts->submissions, draws = counts->draws, commands = counts->commands,
               sets = counts->descriptorSets, allocations = counts->allocations, imports = counts->imports,
               staged = counts->stagedUploads, imported = counts->importedUploads;
};

void report(benchmark::State& state, const Tally& before, const Tally& after) {
  const auto perRefresh = [&](const char* name, std::int64_t Tally::*count) {
    state.counters[name] = benchmark::Counter(static_cast<double>(after.*count - before.*count),
                                              benchmark::Counter::kAvgIterations);
  };
  perRefresh("submissions", &Tally::submissions);
  perRefresh("draws", &Tally::draws);
  perRefresh("commands", &Tally::commands);
  perRefresh("sets", &Tally::sets);
  perRefresh("allocations", &Tally::allocations);
  perRefresh("imports", &Tally::imports);
  perRefresh("staged", &Tally::staged);
  perRefresh("imported", &Tally::imported);
}

/// Refreshes `views` views once per iteration, after `change(stage)`; each refresh has to submit and draw
/// once for each of `drawn` views.
template <class Change>
void refreshAfter(benchmark::State& state, FrameMemory memory, std::size_t views, std::size_t drawn,
                  Change change) {
  MetalStage stage({static_cast<std::size_t>(state.range(0)), static_cast<std::size_t>(state.range(1))},
                   memory, views);
  const Tally before;
  std::int64_t refreshes = 0;
  for (auto _ : state) {
    change(stage);
    stage.refresh();
    ++refreshes;
  }
  const Tally after;
  const std::int64_t links = stage.displayLinks().created;
  report(state, before, after);
  state.counters["links"] = static_cast<double>(links);

  const std::int64_t expected = refreshes * static_cast<std::int64_t>(drawn);
  if (before.draws == 0) state.SkipWithError("nothing was ever drawn");
  if (after.draws - before.draws != expected || after.submissions - before.submissions != expected)
    state.SkipWithError("not every refresh did what it should");
  if (links != 1) state.SkipWithError("not one display link for all views");
  if (after.imported > before.imported && after.staged > before.staged && memory == FrameMemory::library)
    state.SkipWithError("what can be read in place was copied");
}

void newFrame(benchmark::State& state, FrameMemory memory) {
  refreshAfter(state, memory, 1, 1, [](MetalStage& stage) { stage.showNewFrame(); });
}

void sameFrameDrawnAgain(benchmark::State& state, FrameMemory memory) {
  refreshAfter(state, memory, 1, 1, [](MetalStage& stage) { stage.changeSetting(); });
}

void nothingChanged(benchmark::State& state) {
  refreshAfter(state, FrameMemory::library, 1, 0, [](MetalStage&) {});
}

void nothingChangedInFiftyViews(benchmark::State& state) {
  refreshAfter(state, FrameMemory::library, 50, 0, [](MetalStage&) {});
}

/// One refresh, and so one tick, draws all of them.
void newFrameInFiftyViews(benchmark::State& state) {
  refreshAfter(state, FrameMemory::library, 50, 50, [](MetalStage& stage) { stage.showNewFrame(); });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"w", "h"})->Args({16, 16})->Args({1920, 1080})->Args({3840, 2160});
  benchmark->Unit(benchmark::kMicrosecond);
}

void smallest(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"w", "h"})->Args({16, 16})->Unit(benchmark::kMicrosecond);
}

BENCHMARK_CAPTURE(newFrame, library, FrameMemory::library)->Apply(sizes);
BENCHMARK_CAPTURE(newFrame, host, FrameMemory::host)->Apply(sizes);
BENCHMARK_CAPTURE(sameFrameDrawnAgain, library, FrameMemory::library)->Apply(sizes);
BENCHMARK_CAPTURE(sameFrameDrawnAgain, host, FrameMemory::host)->Apply(sizes);
BENCHMARK(nothingChanged)->Apply(smallest);
BENCHMARK(nothingChangedInFiftyViews)->Apply(smallest);
BENCHMARK(newFrameInFiftyViews)->Apply(smallest);

}  // namespace

int main(int argc, char** argv) {
  if (!useNoOpDriver()) {
    std::fprintf(stderr, "metal_frame_bench: cannot load the driver: %s\n", ::dlerror());
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
