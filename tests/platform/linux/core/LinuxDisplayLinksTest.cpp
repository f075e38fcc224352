#include "platform/linux/core/LinuxDisplayLinks.h"

#include "support/simulated/SimulatedPlatform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace QelUtilVideo {
namespace {

double rateOf(const CVDisplayLink& link) {
  const CVTime period = link.CVDisplayLinkGetNominalOutputVideoRefreshPeriod();
  return static_cast<double>(period.timeScale) / static_cast<double>(period.timeValue);
}

TEST(LinuxDisplayLinks, tickOnAThreadOfTheirOwnWhileTheyAreStarted) {
  const ScopedMachine machine;
  LinuxDisplayLinks links(machine->displays(), machine->notificationCenter(), machine->dispatch().mainLoop());
  std::unique_ptr<CVDisplayLink> link;
  ASSERT_EQ(links.CVDisplayLinkCreateWithActiveCGDisplays(link), kCVReturnSuccess);
  EXPECT_EQ(rateOf(*link), 60) << "without displays";
  std::atomic<int> ticks = 0;
  std::atomic<std::thread::id> thread;
  link->CVDisplayLinkSetOutputHandler([&] {
    thread = std::this_thread::get_id();
    ++ticks;
    return kCVReturnSuccess;
  });
  for (int i = 0; i < 2; ++i) {
    const int before = ticks;
    link->CVDisplayLinkStart();
    while (ticks < before + 3) std::this_thread::yield();
    link->CVDisplayLinkStop();
    const int after = ticks;
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    EXPECT_EQ(ticks, after);
  }
  EXPECT_NE(thread.load(), std::this_thread::get_id());
}

TEST(LinuxDisplayLinks, followTheFastestDisplay) {
  const ScopedMachine machine;
  LinuxDisplayLinks links(machine->displays(), machine->notificationCenter(), machine->dispatch().mainLoop());
  machine->displays().set({{.id = 1, .refreshRate = 59.94}, {.id = 2, .refreshRate = 144}});
  std::unique_ptr<CVDisplayLink> link;
  ASSERT_EQ(links.CVDisplayLinkCreateWithActiveCGDisplays(link), kCVReturnSuccess);
  EXPECT_EQ(rateOf(*link), 144);
  machine->displays().set({{.id = 1, .refreshRate = 59.94}});
  machine->displays().notify();
  EXPECT_EQ(rateOf(*link), 59.94);
}

}  // namespace
}  // namespace QelUtilVideo
