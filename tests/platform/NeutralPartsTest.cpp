#include "platform/Diagnostics.h"
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

TEST(DictionaryTest, keepsTheOrderOfItsKeysAndIsDescribedAsObjectsAre) {
  Dictionary dictionary{{"b", 1}, {"a", true}};
  dictionary.set("b", 2.5);
  dictionary.set("c", Array{std::string("x"), CGRectMake(0, 1, 2, 3), Value()});
  EXPECT_EQ(Value(dictionary).description(), "[b: 2.5, a: true, c: [x, {{0, 1}, {2, 3}}, (null)]]");
  EXPECT_EQ(dictionary.get<std::int32_t>("b"), nullptr);
  EXPECT_EQ(dictionary.find("d"), nullptr);
  EXPECT_THAT(std::make_shared<Thing>()->description(), testing::MatchesRegex("<.*Thing: 0x[0-9a-f]+>"));
}

TEST(DiagnosticsTest, examiningTheMachineAsksTheOneThatTheLibraryRunsOn) {
  const ScopedMachine machine;
  machine->diagnostics().set(
      {{Finding::Area::cameras, "Camera", Finding::State::limited, "old", "Buy one."}});
  EXPECT_EQ(examineMachine().at(0).detail, "old");
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

}  // namespace
}  // namespace QelUtilVideo
