#include "render/opengl/Geometry.h"

#include "platform/Clock.h"
#include "render/ExifCorners.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace QelUtilVideo {
namespace {

using Orientation = CGImagePropertyOrientation;
using opengl::Geometry;

class HandClock final : public Clock {
 public:
  double now = 50;
  double CACurrentMediaTime() override { return now; }
};

struct GeometryTest : testing::Test {
  HandClock clock;
  Geometry geometry{clock};
};

TEST(OrientationTest, strayOrientationsCountAsUpright) {
  for (const std::uint32_t stray : {0u, 9u, 4294967295u}) {
    EXPECT_EQ(quarterTurns(Orientation{stray}), (QuarterTurns{0, false})) << stray;
  }
}

// ── Placement ─────────────────────────────────────────────────────────────────────────────────────

void expectUprightAndUndistorted(Geometry::Size surface, Geometry::Size image, bool fit,
                                 Orientation orientation) {
  SCOPED_TRACE(testing::Message() << image.width << "x" << image.height << " on " << surface.width << "x"
                                  << surface.height << ", orientation " << static_cast<int>(orientation)
                                  << (fit ? ", fit" : ", cover"));
  HandClock clock;
  Geometry geometry(clock);
  geometry.setFitMode(false, fit);
  geometry.updateOrientation(orientation, false, image);
  ASSERT_TRUE(geometry.resize(surface).changed);

  const double width = swapsSides(orientation) ? image.height : image.width;
  const double height = swapsSides(orientation) ? image.width : image.height;
  const double scaleX = surface.width / width;
  const double scaleY = surface.height / height;
  const double scale = fit ? std::min(scaleX, scaleY) : std::max(scaleX, scaleY);

  const auto vertices = geometry.makeVertices();
  const Transform matrix = geometry.makeTransform();
  for (std::size_t corner = 0; corner < 4; ++corner) {
    const float* vertex = &vertices[4 * corner];
    const double clipX = double{matrix[0]} * vertex[0] + double{matrix[4]} * vertex[1];
    const double clipY = double{matrix[1]} * vertex[0] + double{matrix[5]} * vertex[1];
    EXPECT_NEAR(std::abs(clipX), scale * width / surface.width, 1e-5);
    EXPECT_NEAR(std::abs(clipY), scale * height / surface.height, 1e-5);
    const PicturePoint stored = storedPoint(orientation, {clipX < 0 ? 0.0 : 1.0, clipY > 0 ? 0.0 : 1.0});
    EXPECT_EQ(stored.x, vertex[2]);
    EXPECT_EQ(stored.y, vertex[3]);
  }
}

TEST(PlacementTest, everyOrientationStandsUprightUndistortedAndFitsOrCovers) {
  for (const Geometry::Size surface : {Geometry::Size{1920, 1080}, {600, 800}, {500, 500}, {97, 31}}) {
    for (const Geometry::Size image : {Geometry::Size{1280, 720}, {640, 480}, {300, 300}, {33, 51}}) {
      for (const Orientation orientation : allOrientations) {
        for (const bool fit : {false, true}) expectUprightAndUndistorted(surface, image, fit, orientation);
      }
    }
  }
}

TEST_F(GeometryTest, withoutAnAreaNothingIsDrawnAndNoNumberIsLost) {
  const std::vector<std::pair<Geometry::Size, Geometry::Size>> empties{
      {{0, 0}, {640, 480}}, {{100, 0}, {640, 480}}, {{100, 50}, {0, 0}}, {{100, 50}, {0, 9}}};
  for (const auto& [surface, image] : empties) {
    geometry.updateOrientation(Orientation::left, false, image);
    static_cast<void>(geometry.resize(surface));
    const auto vertices = geometry.makeVertices();
    for (const std::size_t xOrY : {0, 1, 4, 5, 8, 9, 12, 13}) EXPECT_EQ(vertices[xOrY], 0);
    for (const float element : geometry.makeTransform()) EXPECT_TRUE(std::isfinite(element));
  }
}

// ── Rebuilding and the automatic fit mode ─────────────────────────────────────────────────────────

TEST_F(GeometryTest, onlyAChangeOfAnInputAsksForTheQuadAgain) {
  struct Frame {
    Orientation orientation;
    Geometry::Size image, surface;
    bool changed;
  };
  using enum Orientation;
  const std::vector<Frame> frames{{up, {64, 48}, {100, 50}, true},         {up, {64, 48}, {100, 50}, false},
                                  {up, {64, 48}, {100, 51}, true},         {up, {64, 50}, {100, 51}, true},
                                  {upMirrored, {64, 50}, {100, 51}, true}, {left, {64, 50}, {100, 51}, true},
                                  {left, {64, 50}, {100, 51}, false}};
  for (const auto& [orientation, image, surface, changed] : frames) {
    geometry.updateOrientation(orientation, false, image);
    EXPECT_EQ(geometry.resize(surface).changed, changed);
  }
  geometry.setNeedsUpdate();
  EXPECT_TRUE(geometry.resize({100, 51}).changed);
  EXPECT_EQ(geometry.resize({100, 51}).effectiveSize, (Geometry::Size{50, 64}));
}

TEST(FitModeTest, landscapeInPortraitFitsAndLikeInLikeCovers) {
  using Size = PixelSize<std::int32_t>;
  for (const auto& [image, fits] : {std::pair(Size{1280, 720}, false), {Size{720, 1280}, true}}) {
    EXPECT_EQ(chooseFitInBounds(Size{1920, 1080}, image), fits);
    EXPECT_EQ(chooseFitInBounds(Size{1080, 1920}, image), !fits);
  }
  EXPECT_FALSE(chooseFitInBounds(Size{1000, 1000}, Size{1000, 1000}));
  EXPECT_TRUE(chooseFitInBounds(Size{1000, 1000}, Size{1001, 1000}));
}

TEST_F(GeometryTest, theAutomaticFitModeLooksAtTheTurnedImageAndOnlyWhenRebuilt) {
  const auto fitsAfter = [&](Orientation orientation, bool fit) {
    geometry.setFitMode(true, fit);
    geometry.updateOrientation(orientation, false, {1280, 720});
    static_cast<void>(geometry.resize({1920, 1080}));
    return geometry.fitInBounds();
  };
  EXPECT_FALSE(fitsAfter(Orientation::up, true));
  EXPECT_TRUE(fitsAfter(Orientation::right, false));
  EXPECT_FALSE(fitsAfter(Orientation::right, false));
}

// ── Animation ─────────────────────────────────────────────────────────────────────────────────────

TEST_F(GeometryTest, aChangeOfOrientationIsAnimatedTheShortWay) {
  struct Change {
    Orientation from, to;
    float angle;
  };
  using enum Orientation;
  const std::vector<Change> changes{{left, up, -90},    {up, left, 90},      {up, down, -180},
                                    {down, up, 180},    {right, left, -180}, {left, down, 90},
                                    {up, upMirrored, 0}};
  for (const Change& change : changes) {
    Turn turn;
    turn.update(change.from, false, clock);
    EXPECT_TRUE(turn.update(change.to, true, clock));
    EXPECT_EQ(turn.rotateAngle, change.angle);
    EXPECT_EQ(turn.rotation, quarterTurns(change.to).rotation);
  }
}

TEST_F(GeometryTest, anAnimationRunsAt540DegreesPerSecondAndEndsAtExactlyZero) {
  Turn turn;
  for (const auto& [to, sign] : {std::pair(Orientation::right, -1), std::pair(Orientation::up, 1)}) {
    turn.update(to, true, clock);
    ASSERT_EQ(turn.rotateAngle, sign * 90);
    clock.now += 1.0 / 12;
    EXPECT_TRUE(turn.update(to, true, clock));
    EXPECT_NEAR(turn.rotateAngle, sign * 45, 1e-3);
    clock.now += 60;
    EXPECT_TRUE(turn.update(to, true, clock));
    EXPECT_EQ(turn.rotateAngle, 0);
    EXPECT_FALSE(turn.update(to, true, clock));
  }
}

TEST_F(GeometryTest, changesDuringAnAnimationJumpAndItStillRunsOut) {
  struct Step {
    Orientation to;
    double seconds;
    float angle;
  };
  using enum Orientation;
  Turn turn;
  turn.update(right, true, clock);
  const std::vector<Step> steps{{down, 1.0 / 12, -45}, {left, 1.0 / 24, -22.5}, {up, 1, 0}};
  for (const auto& [to, seconds, angle] : steps) {
    clock.now += seconds;
    turn.update(to, to == down, clock);
    EXPECT_EQ(turn.rotation, quarterTurns(to).rotation);
    EXPECT_NEAR(turn.rotateAngle, angle, 1e-3);
  }
}

TEST_F(GeometryTest, anAnimationStartsWhereThePictureStood) {
  geometry.updateOrientation(Orientation::up, false, {64, 48});
  static_cast<void>(geometry.resize({100, 100}));
  geometry.updateOrientation(Orientation::left, true, {64, 48});
  const Transform start = geometry.makeTransform();
  for (std::size_t index = 0; index < 16; ++index) EXPECT_NEAR(start[index], identityTransform[index], 1e-6);
}

}  // namespace
}  // namespace QelUtilVideo
