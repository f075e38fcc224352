#include "platform/linux/core/EventLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

namespace QelUtilVideo {
namespace {

class EventLoopTest : public testing::Test {
 protected:
  [[nodiscard]] bool hasWork(int milliseconds = 0) const {
    pollfd descriptor{loop.fileDescriptor(), POLLIN, 0};
    return ::poll(&descriptor, 1, milliseconds) == 1;
  }

  EventLoop loop{[](const std::string& text) { ADD_FAILURE() << text; }};
};

TEST_F(EventLoopTest, aNestedRunServesBlocksThatWaitedBehindTheOneThatRunsIt) {
  std::vector<std::string> order;
  loop.async([&] {
    EXPECT_TRUE(hasWork());
    loop.after(2, [&] { loop.stop(); });  // ends what would otherwise wait for ever
    loop.run();
    order.emplace_back("after inner run");
    loop.stop();
  });
  loop.async([&] { order.emplace_back("inner"); });
  loop.async([&] { loop.stop(); });
  loop.run();
  EXPECT_THAT(order, testing::ElementsAre("inner", "after inner run"));
  EXPECT_FALSE(hasWork());
}

TEST_F(EventLoopTest, twoStopsEndOneRunOnly) {
  loop.async([&] {
    loop.stop();
    loop.stop();
  });
  loop.run();
  bool ran = false;
  loop.async([&] { ran = true; });
  loop.async([&] { loop.stop(); });
  loop.run();
  EXPECT_TRUE(ran);
  loop.stop();
  EXPECT_FALSE(hasWork()) << "the next run ends at once, but a host's own loop has nothing to do";
}

TEST_F(EventLoopTest, aTimerStoppedByAnEarlierOneOfTheSameTurnDoesNotFire) {
  bool fired = false;
  TimerClock::Token second = 0;
  loop.start(0, 0, 0, [&] {
    loop.stop(second);
    loop.async([] {});
  });
  second = loop.start(0, 0, 0, [&] { fired = true; });
  EXPECT_TRUE(hasWork(1000));
  loop.dispatchPending();
  EXPECT_FALSE(fired);
  EXPECT_FALSE(hasWork());
}

}  // namespace
}  // namespace QelUtilVideo
