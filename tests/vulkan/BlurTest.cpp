#include "render/metal/Blur.h"

#include "platform/Root.h"
#include "render/metal/PlaneTextures.h"
#include "vulkan/VulkanDevices.h"

#include <QelUtilVideo/platform/CVPixelBuffer.h>

#include <cstdlib>
#include <cstring>

namespace QelUtilVideo {
namespace {

class VulkanBlurs : public VulkanDevices {
 protected:
  [[nodiscard]] metal::Blur make(bool isProcessorsOwn) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no threads that read it
    ::setenv("QelUtilVideoRenderViewMPSDisabled", isProcessorsOwn ? "0" : "1", 1);
    return {Root::current().platform(), device_, "[T]"};
  }
  static CVPixelBufferRef greyPicture(std::size_t width, std::size_t height) {
    CVPixelBufferRef picture;
    EXPECT_EQ(CVPixelBufferCreate(width, height, kCVPixelFormatType_420YpCbCr8BiPlanarVideoRange, picture),
              kCVReturnSuccess);
    for (const PixelPlane& plane : picture->planes()) {
      std::memset(plane.baseAddress, 128, plane.bytesPerRow * plane.height);
    }
    return picture;
  }
};

TEST_F(VulkanBlurs, areTurnedOnAndOffAndChangedAThousandTimes) {
  const auto queue = device_->newCommandQueue();
  const auto cache = device_->CVMetalTextureCacheCreate();
  const std::array pictures{greyPicture(24, 16), greyPicture(18, 22)};
  for (const bool isProcessorsOwn : {true, false}) {
    metal::Blur blur = make(isProcessorsOwn);
    ASSERT_EQ(blur.mpsEnabled(), isProcessorsOwn);
    int sent = 0;
    for (int turn = 0; sent < 1000; ++turn) {
      const auto commands = queue->commandBuffer();
      if (!commands) continue;
      const auto planes =
          metal::makeTextures(pictures[static_cast<std::size_t>(sent / 100 % 2)], *cache, "[T]");
      ASSERT_TRUE(planes);
      const MTLTexture& luma = *planes->textures[0];
      if (blur.update(luma.width(), luma.height(), static_cast<float>(sent % 18) * 0.05F)) {
        blur.encode(*commands, *planes);
      }
      // One that is dropped now and then leaves the textures as the next one needs them.
      if (turn % 7 != 0) commands->commit();
      ++sent;
    }
  }
}

}  // namespace
}  // namespace QelUtilVideo
