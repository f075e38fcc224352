#include "platform/NotificationCenterImpl.h"
#include "platform/Root.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace QelUtilVideo {
namespace {

using testing::ElementsAre;

class Thing : public virtual NSObject {};

TEST(DictionaryTest, keepsTheOrderOfItsKeysAndDescribesItsValues) {
  Dictionary dictionary{{"b", 1}, {"a", true}};
  dictionary.set("b", 2.5);
  dictionary.set("c", Array{std::string("x"), CGRectMake(0, 1, 2, 3), Value()});
  EXPECT_EQ(Value(dictionary).description(), "[b: 2.5, a: true, c: [x, {{0, 1}, {2, 3}}, (null)]]");
  EXPECT_EQ(dictionary.get<std::int32_t>("b"), nullptr);
  EXPECT_EQ(dictionary.find("d"), nullptr);
}

TEST(NSObjectTest, describesItselfByClassAndAddress) {
  const auto thing = std::make_shared<Thing>();
  EXPECT_THAT(thing->description(), testing::MatchesRegex("<.*Thing: 0x[0-9a-f]+>"));
}

TEST(NotificationCenterTest, deliversByNameAndObjectInTheOrderOfRegistration) {
  NotificationCenterImpl own(nullptr);
  NotificationCenter& center = own;
  const auto thing = std::make_shared<Thing>();
  std::vector<int> told;
  const auto tell = [&](int who) { return [&told, who](const NSNotification&) { told.push_back(who); }; };
  center.addObserver("a", nullptr, tell(1));
  center.addObserver(std::nullopt, nullptr, tell(2));
  center.addObserver("a", thing.get(), tell(3));
  center.addObserver("b", nullptr, tell(4));
  center.postNotificationName("a");
  EXPECT_THAT(told, ElementsAre(1, 2));
  told.clear();
  center.postNotificationName("a", thing);
  EXPECT_THAT(told, ElementsAre(1, 2, 3));
}

TEST(NotificationCenterTest, observersMayRemoveEachOtherAddPostAndThrow) {
  std::vector<std::string> troubles;
  NotificationCenterImpl own([&](const std::string& text) { troubles.push_back(text); });
  NotificationCenter& center = own;
  std::vector<std::string> told;
  NotificationCenter::Token second = 0;
  center.addObserver("a", nullptr, [&](const NSNotification&) {
    center.removeObserver(second);
    center.addObserver("b", nullptr, [&](const NSNotification& b) { told.push_back(b.name); });
    center.postNotificationName("b");
    throw std::runtime_error("no");
  });
  second = center.addObserver("a", nullptr, [&](const NSNotification&) { told.emplace_back("removed"); });
  center.addObserver("a", nullptr, [&](const NSNotification&) { told.emplace_back("last"); });
  center.removeObserver(12345);
  center.postNotificationName("a");
  EXPECT_THAT(told, ElementsAre("b", "last"));
  EXPECT_THAT(troubles, ElementsAre("An observer of a threw: no"));
}

struct Inner {
  explicit Inner(Root&) { made.emplace_back("inner"); }
  ~Inner() { made.emplace_back("~inner"); }
  static inline std::vector<std::string> made;
};
struct Outer {
  explicit Outer(Root& root) : inner(root.get<Inner>()) { Inner::made.emplace_back("outer"); }
  ~Outer() { Inner::made.emplace_back("~outer"); }
  Inner& inner;
};

TEST(RootTest, keepsOneObjectPerClassAndLetsTheNewestGoFirst) {
  {
    Root root(std::make_unique<SimulatedPlatform>());
    Outer& outer = root.get<Outer>();
    EXPECT_EQ(&outer, &root.get<Outer>());
    EXPECT_EQ(&outer.inner, &root.get<Inner>());
  }
  EXPECT_THAT(Inner::made, ElementsAre("inner", "outer", "~outer", "~inner"));
}

TEST(SimulatedDispatchTest, timersFireAtTheirExactTimesAndMissedFiringsBecomeOne) {
  ScopedMachine machine;
  std::vector<double> times;
  const auto timer = machine->dispatch().makeTimerSource(machine->dispatch().mainQueue());
  timer->setEventHandler([&] { times.push_back(machine->clock().CACurrentMediaTime()); });
  timer->schedule(0.1, 0);
  timer->resume();
  machine->runMain();
  machine->advance(0.25);
  EXPECT_THAT(times, ElementsAre(100.0, 100.1, 100.2));

  machine->dispatch().setMainQueueServed(false);
  machine->advance(1000);
  EXPECT_EQ(machine->dispatch().pendingOnMain(), 1U);
  machine->dispatch().setMainQueueServed(true);
  machine->settle();
  EXPECT_EQ(times.size(), 4U);
  timer->cancel();
  machine->advance(1);
  EXPECT_EQ(times.size(), 4U);
}

TEST(SimulatedDispatchTest, additionsMergeUntilTheHandlerHasItsTurn) {
  ScopedMachine machine;
  std::vector<std::uint64_t> sums;
  const auto source = machine->dispatch().makeDataAddSource(machine->dispatch().mainQueue());
  source->setEventHandler([&](std::uint64_t sum) { sums.push_back(sum); });
  source->add(1);
  machine->settle();
  source->resume();
  source->add(2);
  source->add(0);
  machine->settle();
  source->add(5);
  source->cancel();
  machine->settle();
  EXPECT_THAT(sums, ElementsAre(3U));
}

}  // namespace
}  // namespace QelUtilVideo
