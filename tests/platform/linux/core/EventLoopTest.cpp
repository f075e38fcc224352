#include "platform/linux/core/EventLoop.h"

#include "platform/linux/core/UniqueFD.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <thread>
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

/// Leaves the process this many new descriptors while it lives.
class FewDescriptors {
 public:
  explicit FewDescriptors(rlim_t left) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    // A descriptor gets the lowest free number.
    const UniqueFD lowest(::dup(STDERR_FILENO));
    std::vector<UniqueFD> taken(left);
    for (UniqueFD& each : taken) each.reset(::dup(STDERR_FILENO));
    const int end = taken.empty() ? lowest.get() : taken.back().get();
    const rlimit limit{static_cast<rlim_t>(end), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
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

TEST(EventLoopWithoutDescriptorsTest, blocksTimersAndStopsAreServedAllTheSame) {
  // A sanitizer needs descriptors of its own where it meets a class for the first time.
  static_cast<void>(EventLoop(nullptr).fileDescriptor());
  for (const rlim_t left : {0, 1, 2}) {
    std::vector<std::string> troubles;
    std::optional<EventLoop> loop;
    {
      const FewDescriptors few(left);
      loop.emplace([&](const std::string& text) { troubles.push_back(text); });
    }
    EXPECT_THAT(troubles, testing::SizeIs(1)) << left;
    EXPECT_EQ(loop->fileDescriptor(), -1);
    EXPECT_FALSE(loop->watch(STDERR_FILENO, [] {}));
    std::vector<std::string> order;
    loop->after(0.03, [&] {
      order.emplace_back("timer");
      loop->async([&] { loop->stop(); });
    });
    std::jthread other([&] { loop->async([&] { order.emplace_back("block"); }); });
    loop->run();
    EXPECT_THAT(order, testing::UnorderedElementsAre("timer", "block"));
    loop->async([&] { order.clear(); });
    loop->dispatchPending();
    EXPECT_THAT(order, testing::IsEmpty());
  }
}

}  // namespace
}  // namespace QelUtilVideo
