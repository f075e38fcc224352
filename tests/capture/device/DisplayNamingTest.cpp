#include "capture/device/DisplayNaming.h"

#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

namespace QelUtilVideo::device {
namespace {

class DisplayNamingTest : public testing::Test {
 protected:
  /// The product name of a display with serial number `serial` when `services` are there.
  std::string nameWith(std::optional<std::vector<std::optional<Dictionary>>> services,
                       std::uint32_t serial = 3) {
    machine->displays().set({{.id = 5, .vendor = 1, .model = 2, .serial = serial}});
    machine->displays().setServices(std::move(services));
    return displayProductName(machine->displays(), 5);
  }
  static Dictionary service(std::uint32_t vendor, std::uint32_t model, Value serial, Value names) {
    return {{"DisplayVendorID", vendor},
            {"DisplayProductID", model},
            {"DisplaySerialNumber", std::move(serial)},
            {"DisplayProductName", std::move(names)}};
  }
  static Dictionary named(const std::string& name) {
    return {{"en_US", name}, {"de_DE", std::string("zwei")}};
  }

  ScopedMachine machine;
};

TEST_F(DisplayNamingTest, firstUsableNameOfTheFirstMatchingServiceIsTheProductName) {
  EXPECT_EQ(nameWith({{std::nullopt, service(9, 2, 3U, named("other vendor")),
                       service(1, 9, 3U, named("other model")), service(1, 2, 9U, named("other serial")),
                       Dictionary{{"DisplayVendorID", std::int32_t{1}}}, service(1, 2, 3U, Dictionary{}),
                       service(1, 2, 3U, std::string("no dictionary")),
                       service(1, 2, 3U, Dictionary{{"en", std::string("text")}, {"de", 4U}}),
                       service(1, 2, 3U, named("Wide 27")), service(1, 2, 3U, named("second match"))}}),
            "Wide 27");
  EXPECT_EQ(nameWith({{service(1, 2, 3U, Dictionary{})}}), "Unknown Screen");
  EXPECT_EQ(nameWith(std::nullopt), "Unknown Screen");
}

TEST_F(DisplayNamingTest, aServiceWithoutASerialMatchesOnlyDisplaysWithoutOne) {
  const Dictionary missing{
      {"DisplayVendorID", 1U}, {"DisplayProductID", 2U}, {"DisplayProductName", named("W")}};
  const Dictionary otherType = service(1, 2, std::string("3"), named("W"));
  EXPECT_EQ(nameWith({{missing}}, 0), "W");
  EXPECT_EQ(nameWith({{otherType}}, 0), "W");
  EXPECT_EQ(nameWith({{missing, otherType}}, 3), "Unknown Screen");
}

TEST(DisplayUniqueIDTest, oneDisplayHasOneIDPerCapturePath) {
  EXPECT_EQ(deviceScreenUniqueID(1), "QelUtilVideo.CapturableScreen.AV.CGDirectDisplayID.1");
  EXPECT_EQ(windowListScreenUniqueID(4294967295U),
            "QelUtilVideo.CapturableScreen.QWS.CGDirectDisplayID.4294967295");
}

}  // namespace
}  // namespace QelUtilVideo::device
