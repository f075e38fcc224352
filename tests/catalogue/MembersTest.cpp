#include "catalogue/Members.h"

#include "catalogue/Names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo::catalogue {
namespace {

/// What a class looks like that lists something.
struct Manager {
  static std::vector<std::shared_ptr<Capturable>> all() { return {}; }
  static std::shared_ptr<Capturable> device(const std::string&) { return nullptr; }
  static void setOverlay(std::int64_t, std::int32_t) {}
  static void mix(bool, float, double, DeviceType) {}
};

template <class T>
concept HasEncoding = requires {
  EncodingOf<T>::size;
};

TEST(PublishedMembers, classesOfferMethodsAndPropertiesOfTheirOwn) {
  const PublishedMember device = classMethod<&Manager::device>("deviceWithUniqueID:");
  EXPECT_EQ(device.kind, PublishedMember::Kind::classMethod);
  EXPECT_EQ(device.encoding, "@24@0:8@16");
  EXPECT_EQ(classMethod<&Manager::setOverlay>("setOverlay:").encoding, "v28@0:8q16i24");
  EXPECT_EQ(property<&Manager::all>("all").encoding, "T@\"NSArray\",N,R");
  EXPECT_EQ(property<&Manager::all>("all").kind, PublishedMember::Kind::classProperty);
}

TEST(PublishedMembers, smallArgumentsTakeTheRoomOfAnIntAndUnknownTypesHaveNoEncoding) {
  EXPECT_EQ(classMethod<&Manager::mix>("mix:").encoding, "v40@0:8B16f20d24q32");
  static_assert(HasEncoding<const CGRect&> && HasEncoding<NSError*>);
  static_assert(!HasEncoding<char> && !HasEncoding<std::optional<std::uint8_t>> && !HasEncoding<void*>);
}

}  // namespace
}  // namespace QelUtilVideo::catalogue
