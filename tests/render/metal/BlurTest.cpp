#include "render/metal/Blur.h"

#include "render/metal/BlurKernel.h"
#include "support/simulated/SimulatedPlatform.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <string>

namespace QelUtilVideo::metal {
namespace {

using testing::ElementsAre;
using testing::FloatNear;
using testing::IsEmpty;
using testing::SizeIs;

TEST(BlurKernel, reachesAsFarAsTheFrameIsLarge) {
  EXPECT_EQ(pixelRadius(1280, 720, 0.01F), 10U);
  EXPECT_EQ(pixelRadius(320, 180, 0.01F), 3U);
  EXPECT_EQ(pixelRadius(1, 1, 0.001F), 1U);
  EXPECT_EQ(pixelRadius(1000, 1000, 0.016F), 16U);
  for (const float large : {0.5F, 7.0F, 1e30F, std::numeric_limits<float>::max()}) {
    EXPECT_EQ(pixelRadius(1920, 1080, large), 16U) << large;
  }
  for (const float none : {0.0F, -0.0F, -1.0F, 1e-30F, std::numeric_limits<float>::quiet_NaN(),
                           std::numeric_limits<float>::infinity()}) {
    EXPECT_EQ(pixelRadius(1920, 1080, none), 0U) << none;
  }
  EXPECT_EQ(pixelRadius(0, 1080, 1), 0U);
}

TEST(BlurKernel, weighsUpToWhereAGaussianFallsToOneCodeValue) {
  std::vector<std::size_t> halves;
  for (std::size_t radius = 1; radius <= 16; ++radius) {
    halves.push_back(kernelHalfWidth(radius));
    const auto weights = kernelWeights(radius);
    ASSERT_EQ(weights.size(), halves.back() + 1);
    EXPECT_NEAR(2 * std::accumulate(weights.begin(), weights.end(), 0.0) - static_cast<double>(weights[0]), 1,
                1e-5);
  }
  EXPECT_THAT(halves, ElementsAre(3, 5, 7, 10, 12, 14, 16, 18, 19, 21, 23, 24, 26, 27, 29, 30));
  EXPECT_THAT(kernelWeights(1), ElementsAre(FloatNear(0.39905F, 1e-5F), FloatNear(0.242036F, 1e-5F),
                                            FloatNear(0.054006F, 1e-5F), FloatNear(0.004433F, 1e-5F)));
}

/// Over a processor that only notes what it is asked for.
class Blurs : public testing::Test {
 protected:
  Blurs() { machine_->metal().setPresent(true); }
  MetalRecord& record() { return machine_->metal().record(); }
  Blur make() { return Blur(*machine_.operator->(), device(), "[V]"); }
  std::shared_ptr<MTLDevice> device() {
    if (!device_) device_ = machine_->metal().MTLCreateSystemDefaultDevice();
    return device_;
  }
  void useOwnKernel() { machine_->userDefaults().set("QelUtilVideoRenderViewMPSDisabled", true); }
  void encode(Blur& blur, std::size_t width, std::size_t height) {
    const auto plane = [](std::size_t columns, std::size_t rows, MTLPixelFormat format) {
      return std::make_shared<MetalRecord::Texture>(columns, rows, format, 0U);
    };
    planes_.textures = {plane(width, height, MTLPixelFormat::r8Unorm),
                        plane(width / 2, height / 2, MTLPixelFormat::rg8Unorm)};
    record().kernels.clear();
    const auto commands = device()->newCommandQueue()->commandBuffer();
    blur.encode(*commands, planes_);
  }
  void expectKernel(std::size_t index, const std::string& name, const std::vector<std::int32_t>& buffer,
                    const std::vector<std::shared_ptr<MTLTexture>>& textures) {
    ASSERT_GT(record().kernels.size(), index);
    const auto& kernel = record().kernels[index];
    EXPECT_EQ(kernel.name, name);
    EXPECT_EQ(kernel.buffer, buffer);
    EXPECT_EQ(kernel.textures, textures);
  }

  ScopedMachine machine_;
  std::shared_ptr<MTLDevice> device_;
  PlaneTextures planes_;
};

TEST_F(Blurs, runTheProcessorsOwnOverTheConvertedFrame) {
  Blur blur = make();
  EXPECT_TRUE(blur.mpsEnabled());
  EXPECT_EQ(record().buffers, 0);
  EXPECT_FALSE(blur.update(640, 360, 0));
  EXPECT_THAT(record().textures, IsEmpty());
  ASSERT_TRUE(blur.update(640, 360, 0.01F));
  EXPECT_THAT(record().sigmas, ElementsAre(5.0F));
  ASSERT_THAT(record().textures, SizeIs(2));
  const auto works = record().textures;
  for (const auto& texture : works) {
    EXPECT_EQ(texture->pixelFormat(), MTLPixelFormat::bgra8Unorm);
    EXPECT_EQ(texture->usage, 3U);
  }
  encode(blur, 640, 360);
  ASSERT_THAT(record().kernels, SizeIs(2));
  expectKernel(0, "computeYUV2RGB_NTGS", {}, {planes_.textures[0], planes_.textures[1], works[0]});
  expectKernel(1, "clamped blur", {}, {works[0], works[1]});
  EXPECT_EQ(blur.output(), works[1]);

  ASSERT_TRUE(blur.update(640, 360, 0.0095F));
  EXPECT_THAT(record().sigmas, SizeIs(1)) << "as many pixels";
  ASSERT_TRUE(blur.update(640, 360, 1));
  EXPECT_THAT(record().sigmas, ElementsAre(5.0F, 16.0F));
  ASSERT_TRUE(blur.update(640, 480, 1));
  ASSERT_TRUE(blur.update(640, 480, 2));
  EXPECT_THAT(record().sigmas, SizeIs(2));
  EXPECT_THAT(record().textures, SizeIs(4));

  useOwnKernel();
  EXPECT_TRUE(blur.mpsEnabled()) << "settled when it was made";
}

TEST_F(Blurs, runTheLibrarysKernelAlongRowsAndColumns) {
  useOwnKernel();
  Blur blur = make();
  ASSERT_TRUE(blur.update(100, 50, 0.01F));
  EXPECT_THAT(record().sigmas, IsEmpty());
  ASSERT_THAT(record().textures, SizeIs(3));
  const auto weights = record().textures[0], first = record().textures[1], second = record().textures[2];
  EXPECT_EQ(weights->pixelFormat(), MTLPixelFormat::r32Float);
  EXPECT_EQ(weights->width(), 3U);
  EXPECT_EQ(weights->height(), 1U);
  EXPECT_EQ(weights->region, (MTLSize{3, 1, 1}));
  EXPECT_THAT(weights->floats, ElementsAre(FloatNear(0.39905F, 1e-5F), FloatNear(0.242036F, 1e-5F),
                                           FloatNear(0.054006F, 1e-5F)));
  encode(blur, 100, 50);
  EXPECT_EQ(record().computeEncoders, 1);
  ASSERT_THAT(record().kernels, SizeIs(3));
  expectKernel(0, "computeYUV2RGB_NTGS", {}, {planes_.textures[0], planes_.textures[1], first});
  expectKernel(1, "computeBlur_NTGS", {1, 0}, {first, second, weights});
  expectKernel(2, "computeBlur_NTGS", {0, 1}, {second, first, weights});
  EXPECT_EQ(blur.output(), first);
  for (const auto& kernel : record().kernels) {
    EXPECT_TRUE(kernel.isByThreads);
    EXPECT_EQ(kernel.grid, (MTLSize{100, 50, 1}));
    EXPECT_EQ(kernel.group, (MTLSize{16, 4, 1})) << "70 threads, 16 side by side";
  }

  ASSERT_TRUE(blur.update(100, 60, 0.01F));
  EXPECT_THAT(record().textures, SizeIs(5)) << "a new size, the same weights";
  ASSERT_TRUE(blur.update(100, 60, 0.1F));
  ASSERT_TRUE(blur.update(100, 60, 0.1F));
  EXPECT_THAT(record().textures, SizeIs(6)) << "new weights, the same size";
  EXPECT_EQ(record().textures.back()->width(), 18U);
}

TEST_F(Blurs, runWholeGroupsWhereThreadsCannotBeCounted) {
  record().countsThreads = false;
  record().hasNoBlurs = true;
  Blur processor = make();
  EXPECT_FALSE(processor.mpsEnabled());
  record().countsThreads = true;
  machine_->systemVersion().set(10, 12);
  Blur system = make();
  EXPECT_FALSE(system.mpsEnabled());
  for (Blur* blur : {&system, &processor}) {
    record().countsThreads = blur == &system;
    machine_->systemVersion().set(10, blur == &system ? 12 : 13);
    ASSERT_TRUE(blur->update(97, 50, 0.01F));
    encode(*blur, 97, 50);
    ASSERT_THAT(record().kernels, SizeIs(3));
    EXPECT_EQ(record().kernels[0].name, "computeYUV2RGB_UTGS");
    EXPECT_EQ(record().kernels[2].name, "computeBlur_UTGS");
    EXPECT_FALSE(record().kernels[2].isByThreads);
    EXPECT_EQ(record().kernels[2].grid, (MTLSize{7, 13, 1}));
    EXPECT_EQ(record().kernels[2].group, (MTLSize{16, 4, 1}));
  }
}

using BlursDeathTest = Blurs;

TEST_F(BlursDeathTest, endTheProcessWhereTheyCannotBeSetUp) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto work = [&] {
    Blur blur = make();
    (void)blur.update(64, 64, 0.1F);
    encode(blur, 64, 64);
  };
  EXPECT_DEATH(record().missingFunction = "computeYUV2RGB_NTGS";
               work(), ".V. load function \"computeYUV2RGB_NTGS\" not found");
  EXPECT_DEATH(record().takesNoKernel = true;
               work(), ".V. creating compute pipeline failed: no kernels here");
  EXPECT_DEATH(record().missingFormat = MTLPixelFormat::bgra8Unorm;
               work(), ".V. creating blur textures failed");
  EXPECT_DEATH(record().hasNoComputeEncoder = true;
               work(), ".RenderView:Metal:.. encode compute pipeline failed");
  useOwnKernel();
  EXPECT_DEATH(record().hasNoBuffer = true; work(), ".V. creating direction.h. buffer failed");
  EXPECT_DEATH(record().missingFunction = "computeBlur_NTGS";
               work(), ".V. load function \"computeBlur_NTGS\" not found");
  EXPECT_DEATH(record().missingFormat = MTLPixelFormat::r32Float;
               work(), ".V. creating blur weights texture failed");
  EXPECT_DEATH(record().hasNoComputeEncoder = true; work(), ".V. encode blur pipeline failed");
}

}  // namespace
}  // namespace QelUtilVideo::metal
