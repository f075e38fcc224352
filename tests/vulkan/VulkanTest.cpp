#include "vulkan/VulkanDevices.h"

#include "platform/Root.h"
#include "render/metal/Geometry.h"
#include "render/metal/Pipelines.h"
#include "support/TemporaryFolder.h"
#include "support/WarmUp.h"

#include <QelUtilVideo/platform/CGImage.h>

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace QelUtilVideo {
namespace {

/// Drivers and layers keep memory that nobody can tell the owner of once they are unloaded: they stay loaded.
const qeltest::WarmUp kWarmUp([] {
  // Never destroyed: drivers are gone before statics are.
  static VulkanMetal* const kept = std::make_unique<VulkanMetal>(shaderLibrary, nullptr).release();
  (void)kept->MTLCreateSystemDefaultDevice();
  (void)::dlopen("libVkLayer_khronos_validation.so", RTLD_NOW | RTLD_NODELETE);
});

CVPixelBufferRef plainPicture(std::size_t width, std::size_t height, int y, int cb, int cr) {
  CVPixelBufferRef picture;
  EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, picture), 0);
  for (std::size_t plane = 0; plane < 2; ++plane) {
    const PixelPlane& rows = picture->planes()[plane];
    for (std::size_t i = 0; i < rows.bytesPerRow * rows.height; ++i) {
      rows.baseAddress[i] = static_cast<std::byte>(plane == 0 ? y : i % 2 ? cr : cb);
    }
  }
  return picture;
}

TEST_F(VulkanDevices, drawAPictureInItsPlaceAndColour) {
  metal::Geometry geometry(Root::current().platform().clock(), "[T]");
  geometry.setFitInBounds(true);
  geometry.updateOrientation(CGImagePropertyOrientation::up, false, {32, 32});
  const auto effective = geometry.resize(*device_, {64, 32});
  EXPECT_EQ(effective, (metal::Geometry::Size{32, 32}));
  const auto surface = device_->makeSurface(std::nullopt);
  const auto queue = device_->newCommandQueue();
  const auto cache = device_->CVMetalTextureCacheCreate();
  const auto pipeline = metal::makeRenderPipeline(*device_, "renderVertex", "renderFragmentYUV", "[T]");
  for (int frame = 0; frame < 5; ++frame) {
    const auto picture = plainPicture(32, 32, 81, 90, 240);  // red
    // The upper half is white.
    std::fill_n(picture->planes()[0].baseAddress, picture->planes()[0].bytesPerRow * 16, std::byte{235});
    std::fill_n(picture->planes()[1].baseAddress, picture->planes()[1].bytesPerRow * 8, std::byte{128});
    std::vector<std::shared_ptr<MTLTexture>> textures(2);
    for (std::size_t plane = 0; plane < 2; ++plane) {
      std::unique_ptr<CVMetalTexture> wrapper;
      ASSERT_EQ(cache->CVMetalTextureCacheCreateTextureFromImage(
                    picture, plane == 0 ? MTLPixelFormat::r8Unorm : MTLPixelFormat::rg8Unorm, 32 >> plane,
                    32 >> plane, plane, wrapper),
                kCVReturnSuccess);
      textures[plane] = wrapper->CVMetalTextureGetTexture();
    }
    // There is none while the processor is busy with two.
    std::shared_ptr<CAMetalDrawable> drawable;
    while (!drawable) drawable = surface->nextDrawable(64, 32);
    const auto commands = queue->commandBuffer();
    ASSERT_TRUE(commands);
    metal::encodeRenderPipeline(*commands, pipeline, {drawable->texture(), {0, 0, 1, 0.5}}, geometry,
                                textures);
    commands->presentDrawable(drawable);
    commands->commit();
    EXPECT_TRUE(drawable->isPresented());
  }
  const auto shown = surface->contents();
  ASSERT_TRUE(shown);
  ASSERT_EQ(shown->width(), 64U);
  const auto bytes = shown->dataProvider()->bytes();
  const auto pixel = [&](std::size_t x, std::size_t y) {
    const std::byte* at = bytes->data() + y * shown->layout().bytesPerRow + 4 * x;
    return std::vector<int>{std::to_integer<int>(at[2]), std::to_integer<int>(at[1]),
                            std::to_integer<int>(at[0]), std::to_integer<int>(at[3])};
  };
  EXPECT_EQ(pixel(2, 16), (std::vector<int>{0, 0, 255, 128}));
  EXPECT_EQ(pixel(61, 16), (std::vector<int>{0, 0, 255, 128}));
  EXPECT_THAT(pixel(32, 4), testing::Each(testing::Ge(254))) << "the first row is on top";
  const auto red = pixel(32, 28);
  EXPECT_NEAR(red[0], 254, 2);
  EXPECT_NEAR(red[1], 0, 2);
  EXPECT_NEAR(red[2], 0, 2);
}

TEST_F(VulkanDevices, sayWhatIsWrongWithAShaderLibrary) {
  const TemporaryFolder folder;
  const auto fails = [&](const std::string& contents) {
    const std::string path = folder.write("lib", contents);
    VulkanMetal other([path] { return std::optional(path); }, nullptr);
    return !other.MTLCreateSystemDefaultDevice()->newDefaultLibraryWithBundle().hasValue();
  };
  std::ifstream file(*shaderLibrary(), std::ios::binary);
  const std::string good{std::istreambuf_iterator<char>(file), {}};
  EXPECT_FALSE(fails(good));
  for (std::size_t size = 0; size < good.size(); size += 97) {
    const bool isWhole = size == 23;  // nothing but the signature
    EXPECT_EQ(fails(good.substr(0, size)), !isWhole) << size;
  }
  EXPECT_TRUE(fails("QelUtilVideo shaders 1\na 99999999999\n"));
  EXPECT_TRUE(fails("QelUtilVideo shaders 1\na 24\n" + std::string(24, 'x')));
}

}  // namespace
}  // namespace QelUtilVideo
