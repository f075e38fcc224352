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

struct ClipPoint {
  double x, y;
};

ClipPoint transformed(const Transform& matrix, float x, float y) {
  return {double{matrix[0]} * x + double{matrix[4]} * y, double{matrix[1]} * x + double{matrix[5]} * y};
}

TEST(OrientationTest, eachOrientationHasItsQuarterTurnsAndMirror) {
  const std::vector<QuarterTurns> expected{{0, false}, {0, true},  {2, false}, {2, true},
                                           {1, true},  {1, false}, {3, true},  {3, false}};
  for (std::size_t index = 0; index < 8; ++index) {
    EXPECT_EQ(quarterTurns(allOrientations[index]), expected[index]) << "orientation " << index + 1;
  }
  for (const std::uint32_t stray : {0u, 9u, 4294967295u}) {
    EXPECT_EQ(quarterTurns(Orientation{stray}), (QuarterTurns{0, false})) << stray;
  }
}

// ── Placement ─────────────────────────────────────────────────────────────────────────────────────

void expectUprightAndUndistorted(Geometry::Size surface, Geometry::Size image, bool fit,
                                 Orientation orientation) {
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
  const Transform transform = geometry.makeTransform();
  for (std::size_t corner = 0; corner < 4; ++corner) {
    const float* vertex = &vertices[4 * corner];
    const ClipPoint clip = transformed(transform, vertex[0], vertex[1]);
    EXPECT_NEAR(std::abs(clip.x), scale * width / surface.width, 1e-5);
    EXPECT_NEAR(std::abs(clip.y), scale * height / surface.height, 1e-5);
    const PicturePoint stored = storedPoint(orientation, {clip.x < 0 ? 0.0 : 1.0, clip.y > 0 ? 0.0 : 1.0});
    EXPECT_EQ(stored.x, vertex[2]);
    EXPECT_EQ(stored.y, vertex[3]);
  }
}

TEST(PlacementTest, everyOrientationStandsUprightUndistortedAndFitsOrCovers) {
  for (const Geometry::Size surface : {Geometry::Size{1920, 1080}, {600, 800}, {500, 500}, {97, 31}}) {
    for (const Geometry::Size image : {Geometry::Size{1280, 720}, {640, 480}, {300, 300}, {33, 51}}) {
      for (const Orientation orientation : allOrientations) {
        for (const bool fit : {false, true}) {
          SCOPED_TRACE(testing::Message() << image.width << "x" << image.height << " on " << surface.width
                                          << "x" << surface.height << ", orientation "
                                          << static_cast<int>(orientation) << (fit ? ", fit" : ", cover"));
          expectUprightAndUndistorted(surface, image, fit, orientation);
        }
      }
    }
  }
}

TEST_F(GeometryTest, wholePixelsAndFractionalOnesGiveRatiosOfTheirOwnRounding) {
  EXPECT_EQ(aspectRatio(PixelSize<std::int32_t>{16777217, 3}), 16777216.f / 3.f);
  EXPECT_EQ(aspectRatio(PixelSize<double>{16777217, 3}), static_cast<float>(16777217.0 / 3.0));
}

TEST_F(GeometryTest, theTransformIsIdentityOnASquareSurfaceUnlessMirroredOrTurned) {
  geometry.updateOrientation(Orientation::up, false, {640, 480});
  ASSERT_TRUE(geometry.resize({300, 300}).changed);
  EXPECT_EQ(geometry.makeTransform(), identityTransform);

  geometry.updateOrientation(Orientation::upMirrored, false, {640, 480});
  Transform mirrored = identityTransform;
  mirrored[0] = -1;
  EXPECT_EQ(geometry.makeTransform(), mirrored);

  // The angle is that of the float just below a right angle, negative: clockwise.
  geometry.updateOrientation(Orientation::right, false, {640, 480});
  const float angle = 1.57079625129699707f;
  EXPECT_NE(angle, static_cast<float>(std::acos(-1.0) / 2));
  const Transform turned = geometry.makeTransform();
  EXPECT_EQ(turned[0], std::cos(-angle));
  EXPECT_EQ(turned[1], std::sin(-angle));
  EXPECT_EQ(turned[4], -std::sin(-angle));
  EXPECT_EQ(turned[5], std::cos(-angle));
}

TEST_F(GeometryTest, withoutAnAreaNothingIsDrawnAndNoNumberIsLost) {
  const std::vector<std::pair<Geometry::Size, Geometry::Size>> empties{
      {{0, 0}, {640, 480}}, {{100, 0}, {640, 480}}, {{100, 50}, {0, 0}}, {{100, 50}, {0, 9}}};
  for (const auto& [surface, image] : empties) {
    geometry.updateOrientation(Orientation::left, false, image);
    static_cast<void>(geometry.resize(surface));
    const auto vertices = geometry.makeVertices();
    for (std::size_t corner = 0; corner < 4; ++corner) {
      EXPECT_EQ(vertices[4 * corner], 0);
      EXPECT_EQ(vertices[4 * corner + 1], 0);
    }
    for (const float element : geometry.makeTransform()) EXPECT_TRUE(std::isfinite(element));
  }
}

// ── Rebuilding and the automatic fit mode ─────────────────────────────────────────────────────────

TEST_F(GeometryTest, onlyAChangeOfAnInputAsksForTheQuadAgain) {
  const auto frame = [&](Orientation orientation, Geometry::Size image, Geometry::Size surface) {
    geometry.updateOrientation(orientation, false, image);
    return geometry.resize(surface).changed;
  };
  EXPECT_TRUE(frame(Orientation::up, {64, 48}, {100, 50}));
  EXPECT_FALSE(frame(Orientation::up, {64, 48}, {100, 50}));
  EXPECT_TRUE(frame(Orientation::up, {64, 48}, {100, 51}));
  EXPECT_TRUE(frame(Orientation::up, {64, 50}, {100, 51}));
  EXPECT_TRUE(frame(Orientation::upMirrored, {64, 50}, {100, 51}));
  EXPECT_TRUE(frame(Orientation::left, {64, 50}, {100, 51}));
  geometry.setNeedsUpdate();
  EXPECT_TRUE(frame(Orientation::left, {64, 50}, {100, 51}));
  EXPECT_FALSE(frame(Orientation::left, {64, 50}, {100, 51}));
  EXPECT_EQ(geometry.resize({100, 51}).effectiveSize, (Geometry::Size{50, 64}));
}

TEST(FitModeTest, landscapeInPortraitFitsAndLikeInLikeCovers) {
  using Size = PixelSize<std::int32_t>;
  EXPECT_FALSE(chooseFitInBounds(Size{1920, 1080}, Size{1280, 720}));
  EXPECT_TRUE(chooseFitInBounds(Size{1920, 1080}, Size{720, 1280}));
  EXPECT_TRUE(chooseFitInBounds(Size{1080, 1920}, Size{1280, 720}));
  EXPECT_FALSE(chooseFitInBounds(Size{1080, 1920}, Size{720, 1280}));
  EXPECT_FALSE(chooseFitInBounds(Size{1000, 1000}, Size{1000, 1000}));
  EXPECT_TRUE(chooseFitInBounds(Size{1000, 1000}, Size{1001, 1000}));
  EXPECT_TRUE(chooseFitInBounds(PixelSize<double>{10.5, 10}, PixelSize<double>{10, 10}));
}

TEST_F(GeometryTest, theAutomaticFitModeLooksAtTheTurnedImageAndOnlyWhenRebuilt) {
  geometry.setFitMode(true, true);
  geometry.updateOrientation(Orientation::up, false, {1280, 720});
  static_cast<void>(geometry.resize({1920, 1080}));
  EXPECT_FALSE(geometry.fitInBounds());
  geometry.updateOrientation(Orientation::right, false, {1280, 720});
  static_cast<void>(geometry.resize({1920, 1080}));
  EXPECT_TRUE(geometry.fitInBounds());
  geometry.setFitMode(true, false);
  static_cast<void>(geometry.resize({1920, 1080}));
  EXPECT_FALSE(geometry.fitInBounds());
}

// ── Animation ─────────────────────────────────────────────────────────────────────────────────────

TEST_F(GeometryTest, aChangeOfOrientationIsAnimatedTheShortWay) {
  struct Change {
    Orientation from, to;
    float angle;
  };
  const std::vector<Change> changes{
      {Orientation::left, Orientation::up, -90},     {Orientation::up, Orientation::left, 90},
      {Orientation::up, Orientation::down, -180},    {Orientation::down, Orientation::up, 180},
      {Orientation::up, Orientation::right, -90},    {Orientation::right, Orientation::up, 90},
      {Orientation::right, Orientation::left, -180}, {Orientation::left, Orientation::down, 90},
      {Orientation::up, Orientation::upMirrored, 0}};
  for (const Change& change : changes) {
    Turn turn;
    turn.update(change.from, false, clock);
    EXPECT_TRUE(turn.update(change.to, true, clock));
    EXPECT_EQ(turn.rotateAngle, change.angle);
    EXPECT_EQ(turn.rotation, quarterTurns(change.to).rotation);
  }
}

TEST_F(GeometryTest, anAnimationRunsAt540DegreesPerSecondAndEndsAtExactlyZero) {
  for (const auto& [to, sign] : {std::pair(Orientation::right, -1), std::pair(Orientation::up, 1)}) {
    Turn turn;
    turn.update(to == Orientation::up ? Orientation::right : Orientation::up, false, clock);
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
  Turn turn;
  turn.update(Orientation::right, true, clock);
  clock.now += 1.0 / 12;
  turn.update(Orientation::down, true, clock);
  EXPECT_EQ(turn.rotation, 2);
  EXPECT_NEAR(turn.rotateAngle, -45, 1e-3);
  clock.now += 1.0 / 24;
  turn.update(Orientation::left, false, clock);
  EXPECT_EQ(turn.rotation, 3);
  EXPECT_NEAR(turn.rotateAngle, -22.5, 1e-3);
  clock.now += 1;
  turn.update(Orientation::up, false, clock);
  EXPECT_EQ(turn.rotateAngle, 0);
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
