#include "platform/linux/core/LinuxDispatch.h"

#include "platform/linux/core/UniqueFD.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <stdexcept>
#include <thread>

namespace QelUtilVideo {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class LinuxDispatchTest : public testing::Test {
 protected:
  LinuxDispatch dispatch{
      [this](const std::string& text) { troubles.with([&](auto& all) { all.push_back(text); }); }};
  Synchronised<std::vector<std::string>> troubles;

  [[nodiscard]] bool hasWork() {
    pollfd descriptor{dispatch.mainLoop().fileDescriptor(), POLLIN, 0};
    return ::poll(&descriptor, 1, 0) == 1;
  }
  void runFor(double seconds) {
    dispatch.mainLoop().after(seconds, [this] { dispatch.mainLoop().stop(); });
    dispatch.mainLoop().run();
  }
};

// ── Serial queues ───────────────────────────────────────────────────────────────────────────────────

TEST_F(LinuxDispatchTest, aQueueRunsBlocksInOrderAndSyncAfterThem) {
  const auto queue = dispatch.makeQueue("q");
  std::vector<int> order;
  for (int i = 0; i < 1000; ++i) queue->async([&order, i] { order.push_back(i); });
  std::thread::id thread;
  queue->sync([&] {
    order.push_back(1000);
    thread = std::this_thread::get_id();
  });
  ASSERT_EQ(order.size(), 1001U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST_F(LinuxDispatchTest, syncOfManyThreadsIsExclusive) {
  const auto queue = dispatch.makeQueue("q");
  int count = 0;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int n = 0; n < 500; ++n) {
          queue->sync([&] { ++count; });
          queue->async([&] { ++count; });
        }
      });
    }
  }
  queue->sync([] {});
  EXPECT_EQ(count, 4000);
}

TEST_F(LinuxDispatchTest, exceptionsOfSyncComeBackAndThoseOfAsyncAreReported) {
  const auto queue = dispatch.makeQueue("q");
  queue->async([] { throw std::runtime_error("late"); });
  EXPECT_THROW(queue->sync([] { throw std::logic_error("now"); }), std::logic_error);
  queue->sync([] {});
  EXPECT_THAT(troubles.copy(), ElementsAre("A block on q threw: late"));
}

TEST_F(LinuxDispatchTest, waitingForOneselfIsReportedAndRunsAtOnce) {
  std::vector<std::string> deadlocks;
  const auto outer = dispatch.makeQueue("outer");
  const auto inner = dispatch.makeQueue("inner");
  int ran = 0;
  outer->sync([&] { inner->sync([&] { outer->sync([&] { ++ran; }); }); });
  EXPECT_THAT(troubles.copy(), ElementsAre("The queue outer was asked to wait for itself"));

  dispatch.setDeadlockHandler([&](const std::string& label) { deadlocks.push_back(label); });
  dispatch.mainQueue()->sync([&] { ++ran; });
  EXPECT_EQ(ran, 2);
  EXPECT_THAT(deadlocks, ElementsAre("main"));
}

TEST_F(LinuxDispatchTest, aQueueDroppedByItsOwnBlockStillRunsTheOthers) {
  auto queue = dispatch.makeQueue("q");
  const auto ended = std::make_shared<std::promise<void>>();
  queue->sync([&] {
    queue->async([&] { queue.reset(); });
    queue->async([ended] { ended->set_value(); });
  });
  EXPECT_EQ(ended->get_future().wait_for(10s), std::future_status::ready);
}

TEST_F(LinuxDispatchTest, blocksThatWaitForEachOtherEndAndHundredsOfShortOnesNeedFewThreads) {
  constexpr int many = 300;
  std::vector<std::shared_ptr<DispatchQueue>> queues;
  for (int i = 0; i < many; ++i) queues.push_back(dispatch.makeQueue("q" + std::to_string(i)));
  std::latch shortOnes(many);
  for (const auto& queue : queues) queue->async([&] { shortOnes.count_down(); });
  shortOnes.wait();
  EXPECT_LE(dispatch.threadCount(), 20U);

  constexpr int waiting = 24;
  std::latch together(waiting);
  for (int i = 0; i < waiting; ++i) {
    queues[static_cast<std::size_t>(i)]->async([&] { together.arrive_and_wait(); });
  }
  for (int i = 0; i < waiting; ++i) queues[static_cast<std::size_t>(i)]->sync([] {});
  EXPECT_TRUE(together.try_wait());
}

TEST_F(LinuxDispatchTest, aTimerOnASerialQueueNeedsNoMainLoopAndMayBeDestroyedByItsOwnHandler) {
  const auto queue = dispatch.makeQueue("q");
  std::promise<void> thrice;
  int firings = 0;
  auto timer = dispatch.makeTimerSource(queue);
  timer->setEventHandler([&] {
    if (++firings < 3) return;
    timer.reset();
    thrice.set_value();
  });
  timer->schedule(0.005, 0);
  timer->resume();
  EXPECT_EQ(thrice.get_future().wait_for(10s), std::future_status::ready);
  std::this_thread::sleep_for(30ms);
  queue->sync([] {});
  EXPECT_EQ(firings, 3);
}

// ── The main loop ───────────────────────────────────────────────────────────────────────────────────

TEST_F(LinuxDispatchTest, pendingWorkMakesTheDescriptorReadableUntilItIsDone) {
  EXPECT_FALSE(hasWork());
  int ran = 0;
  dispatch.mainLoop().async([&] {
    ++ran;
    dispatch.mainLoop().async([&] { ++ran; });
  });
  for (const int turn : {1, 2}) {
    EXPECT_TRUE(hasWork());
    dispatch.mainLoop().dispatchPending();
    EXPECT_EQ(ran, turn);
  }
  EXPECT_FALSE(hasWork());
}

TEST_F(LinuxDispatchTest, stopEndsTheInnermostRunAfterTheBlockNowRunning) {
  MainLoop& loop = dispatch.mainLoop();
  std::vector<std::string> order;
  loop.async([&] {
    loop.async([&] {
      order.emplace_back("inner");
      loop.stop();
    });
    loop.run();
    order.emplace_back("after inner run");
    loop.stop();
    loop.async([&] { order.emplace_back("left over"); });
  });
  loop.run();
  EXPECT_THAT(order, ElementsAre("inner", "after inner run"));
  loop.stop();
  loop.run();
  EXPECT_EQ(order.size(), 2U);
  loop.dispatchPending();
  EXPECT_EQ(order.back(), "left over");
}

TEST_F(LinuxDispatchTest, otherThreadsMayQueueStopAndWaitButNotRun) {
  MainLoop& loop = dispatch.mainLoop();
  EXPECT_TRUE(loop.isMainThread());
  EXPECT_FALSE(loop.bindToCurrentThread());
  std::thread::id ranOn;
  std::jthread other([&] {
    EXPECT_FALSE(loop.isMainThread());
    loop.run();
    loop.dispatchPending();
    dispatch.mainQueue()->sync([&] { ranOn = std::this_thread::get_id(); });
    EXPECT_THROW(dispatch.mainQueue()->sync([] { throw std::runtime_error("back"); }), std::runtime_error);
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST_F(LinuxDispatchTest, anotherThreadCanBecomeTheMainThreadOnce) {
  std::jthread([&] {
    EXPECT_TRUE(dispatch.mainLoop().bindToCurrentThread());
    EXPECT_TRUE(dispatch.mainLoop().isMainThread());
  }).join();
  EXPECT_FALSE(dispatch.mainLoop().bindToCurrentThread());
  EXPECT_FALSE(dispatch.mainLoop().isMainThread());
}

TEST_F(LinuxDispatchTest, oddDelaysMeanNowAndOrderFollowsTime) {
  std::vector<int> order;
  dispatch.mainLoop().after(0.02, [&] { order.push_back(2); });
  dispatch.mainLoop().after(-5, [&] { order.push_back(0); });
  dispatch.mainLoop().after(std::numeric_limits<double>::quiet_NaN(), [&] { order.push_back(1); });
  dispatch.mainLoop().after(1e300, [&] { order.push_back(3); });
  runFor(0.06);
  EXPECT_THAT(order, ElementsAre(0, 1, 2));
}

TEST_F(LinuxDispatchTest, aTimerBeginsAtOnceAndMissedFiringsBecomeOne) {
  int firings = 0;
  const auto timer = dispatch.makeTimerSource(dispatch.mainQueue());
  timer->setEventHandler([&] { ++firings; });
  timer->schedule(0.1, 0);
  EXPECT_FALSE(hasWork());
  timer->resume();
  dispatch.mainLoop().dispatchPending();
  dispatch.mainLoop().dispatchPending();
  EXPECT_EQ(firings, 1);
  std::this_thread::sleep_for(350ms);
  EXPECT_TRUE(hasWork());
  dispatch.mainLoop().dispatchPending();
  EXPECT_EQ(firings, 2);
  dispatch.mainLoop().async([&] { timer->cancel(); });
  runFor(0.15);
  EXPECT_EQ(firings, 2);
  EXPECT_FALSE(hasWork());
}

TEST_F(LinuxDispatchTest, aWatchedDescriptorCallsUntilItIsUnwatched) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
  const UniqueFD ours(ends[0]);
  UniqueFD theirs(ends[1]);
  int calls = 0;
  ASSERT_TRUE(dispatch.eventLoop().watch(ours.get(), [&] {
    ++calls;
    char byte = 0;
    if (::read(ours.get(), &byte, 1) == 0) dispatch.eventLoop().unwatch(ours.get());
  }));
  EXPECT_FALSE(dispatch.eventLoop().watch(-1, [] {}));
  ASSERT_EQ(::write(theirs.get(), "x", 1), 1);
  for (const int call : {1, 2}) {
    EXPECT_TRUE(hasWork());
    dispatch.mainLoop().dispatchPending();
    EXPECT_EQ(calls, call);
    EXPECT_EQ(hasWork(), false);
    theirs.reset();
  }
  EXPECT_FALSE(hasWork());
}

TEST_F(LinuxDispatchTest, additionsMergeUntilTheHandlerHasItsTurn) {
  const auto source = dispatch.makeDataAddSource(dispatch.mainQueue());
  std::vector<std::uint64_t> sums;
  source->setEventHandler([&](std::uint64_t sum) { sums.push_back(sum); });
  source->add(1);
  runFor(0.001);
  EXPECT_THAT(sums, IsEmpty());
  source->resume();
  std::jthread([&] {
    for (int i = 0; i < 100; ++i) source->add(1);
  }).join();
  source->add(0);
  runFor(0.01);
  source->add(5);
  source->cancel();
  runFor(0.01);
  EXPECT_THAT(sums, ElementsAre(101));
}

}  // namespace
}  // namespace QelUtilVideo
