#include "platform/linux/vulkan/Spares.h"

#include <gtest/gtest.h>

#include <memory>

namespace QelUtilVideo {
namespace {

TEST(Spares, areWhatNobodyHoldsTheOldestFirstAndGoWhenNobodyWantsThem) {
  Spares<int> spares;
  auto first = std::make_shared<int>(1), second = std::make_shared<int>(2), third = std::make_shared<int>(3);
  for (const auto& each : {first, second, third}) spares.add(each);
  const auto all = [](int) { return true; };
  EXPECT_FALSE(spares.take(all));
  EXPECT_EQ(spares.find([](int each) { return each == 2; }), second);

  second.reset();
  EXPECT_TRUE(spares.age(1).empty());
  first.reset();
  EXPECT_EQ(*spares.take(all), 2) << "it has been spare for longer";
  EXPECT_FALSE(spares.take([](int each) { return each == 3; }));
  EXPECT_TRUE(spares.age(1).empty());
  const auto taken = spares.take(all);
  for (int call = 0; call < 2; ++call) EXPECT_EQ(spares.age(1).size(), 0U) << "one in use grows no older";
  ASSERT_EQ(spares.age(1).size(), 1U) << "the other one does, after as many calls as there are objects";
  EXPECT_EQ(spares.find(all), taken);
  third.reset();
  EXPECT_EQ(*spares.age(0).front(), 3);
}

}  // namespace
}  // namespace QelUtilVideo
