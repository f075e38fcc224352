#include "Failure.h"
#include "FrameHolder.h"
#include "ViewKeys.h"
#include "ViewWindow.h"

#include <QelKit/QelVideoImageBuffer.h>
#include <QelUtilVideo/RenderViewData.h>

#include <gtest/gtest.h>

namespace qelvideo {
namespace {

using QelUtilVideo::CGImagePropertyOrientation;

TEST(ViewKeys, keysChangeWhatTheyNameAndNothingElse) {
  const auto press = [](const ViewOptions& options, const char* keys) {
    ViewOptions result = options;
    for (const char* key = keys; *key; ++key) {
      const auto action = viewAction(std::string_view(key, 1));
      if (action) result = changed(result, *action);
    }
    return result;
  };
  const std::vector<std::pair<const char*, const char*>> cases{
      {"", "fitting, orientation up"},
      {"c", "covering, orientation up"},
      {"F", "covering, orientation up"},
      {"ca", "fitting automatically, orientation up"},
      {"cf", "fitting, orientation up"},
      {"o", "fitting, orientation up-mirrored"},
      {"O", "fitting, orientation left"},
      {"oooooooo", "fitting, orientation up"},
      {"t", "fitting, orientation up, turns animated"},
      {"tt", "fitting, orientation up"},
      {"xsh?q\x1b", "fitting, orientation up"},
  };
  for (const auto& [keys, expected] : cases) EXPECT_EQ(describe(press({}, keys)), expected) << keys;

  // Black is what no colour looks like, so the first press shows white.
  EXPECT_EQ(press({}, "g").background->usingDeviceRGBColorSpace()->red, 1);
  EXPECT_EQ(press({}, "gggg").background->usingDeviceRGBColorSpace()->red, 0);
  ViewOptions pattern;
  pattern.background = QelUtilVideo::NSColor::pattern();
  EXPECT_TRUE(press(pattern, "g").background->usingDeviceRGBColorSpace());

  ViewOptions blurred;
  blurred.blurRadius = 0.005F;
  const std::vector<std::pair<const char*, float>> blurs{{"b", 0.008F},   {"bbb", 0.032F}, {"bbbbbb", 0.032F},
                                                         {"B", 0.004F},   {"BBBB", 0},     {"0", 0},
                                                         {"0bbB", 0.001F}};
  for (const auto& [keys, radius] : blurs) EXPECT_EQ(press(blurred, keys).blurRadius, radius) << keys;

  EXPECT_EQ(viewAction("q"), ViewAction::quit);
  EXPECT_EQ(viewAction("\x1b"), ViewAction::quit);
  EXPECT_EQ(viewAction("Escape"), ViewAction::quit);
  EXPECT_EQ(viewAction("qq"), std::nullopt);
  EXPECT_EQ(viewAction(""), std::nullopt);
}

TEST(ViewKeys, aChangeOfOrientationShowsTheFrameHeldAsALaterOne) {
  FrameHolder frames(CGImagePropertyOrientation::up);
  frames.setOrientation(CGImagePropertyOrientation::right);
  EXPECT_EQ(frames.showAgain(), 0);
  QelUtilVideo::CVPixelBufferRef picture;
  ASSERT_EQ(QelUtilVideo::CVPixelBufferCreate(
                4, 4, QelUtilVideo::kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, picture),
            0);
  frames.show(picture, 5);
  EXPECT_EQ(frames.container()->data()->orientation(), CGImagePropertyOrientation::right);
  frames.setOrientation(CGImagePropertyOrientation::right);
  EXPECT_EQ(frames.container()->timestamp(), 5);
  frames.setOrientation(CGImagePropertyOrientation::down);
  EXPECT_EQ(frames.container()->data()->orientation(), CGImagePropertyOrientation::down);
  EXPECT_EQ(frames.container()->data()->pixelBuffer(), picture);
  EXPECT_GT(frames.container()->timestamp(), 5);
  EXPECT_LT(frames.container()->timestamp(), 5.001);
}

TEST(ViewKeys, windowNumbersAreReadInBothWays) {
  EXPECT_EQ(parseWindowNumber("0x1a00007"), 0x1a00007U);
  EXPECT_EQ(parseWindowNumber("27262983"), 27262983U);
  for (const char* wrong : {"", "0x", "0", "12q", "0x1ffffffff", "-1"}) {
    EXPECT_THROW(static_cast<void>(parseWindowNumber(wrong)), UsageFailure) << wrong;
  }
}

}  // namespace
}  // namespace qelvideo
