#include "platform/linux/core/EventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;

class EventLoopTest : public testing::Test {
 protected:
  [[nodiscard]] bool hasWork() const {
    pollfd descriptor{loop.fileDescriptor(), POLLIN, 0};
    return ::poll(&descriptor, 1, 0) == 1;
  }

  EventLoop loop{[](const std::string& text) { ADD_FAILURE() << text; }};
};

TEST_F(EventLoopTest, aNestedRunServesBlocksThatWaitedBehindTheOneThatRunsIt) {
  std::vector<std::string> order;
  // Ends what would otherwise wait for ever.
  const auto watchdog = [&](double seconds) { loop.after(seconds, [&] { loop.stop(); }); };
  loop.async([&] {
    EXPECT_TRUE(hasWork());
    watchdog(2);
    loop.run();
    order.emplace_back("after inner run");
    loop.stop();
  });
  loop.async([&] {
    order.emplace_back("inner");
    loop.stop();
  });
  loop.run();
  EXPECT_THAT(order, ElementsAre("inner", "after inner run"));
  EXPECT_FALSE(hasWork());
}

TEST_F(EventLoopTest, anythingDoneInATurnLeavesTheDescriptorQuiet) {
  loop.start(0, 0, 0, [&] { loop.async([] {}); });
  loop.dispatchPending();
  EXPECT_FALSE(hasWork());
}

TEST_F(EventLoopTest, asManyStopsEndOneRunOnly) {
  int ran = 0;
  loop.async([&] {
    loop.stop();
    loop.stop();
  });
  loop.run();
  loop.async([&] {
    ++ran;
    loop.stop();
  });
  loop.run();
  EXPECT_EQ(ran, 1);
  loop.stop();
  EXPECT_FALSE(hasWork()) << "the next run ends at once, but a host's own loop has nothing to do";
}

TEST_F(EventLoopTest, aTimerStoppedByAnEarlierOneOfTheSameTurnDoesNotFire) {
  bool fired = false;
  TimerClock::Token second = 0;
  loop.start(0.001, 0, 0, [&] { loop.stop(second); });
  second = loop.start(0.002, 0, 0, [&] { fired = true; });
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  loop.dispatchPending();
  EXPECT_FALSE(fired);
}

}  // namespace
}  // namespace QelUtilVideo
