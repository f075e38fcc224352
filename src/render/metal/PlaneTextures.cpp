#include "render/metal/PlaneTextures.h"

#include "log/Log.h"

#include <cstddef>
#include <utility>

namespace QelUtilVideo::metal {

std::optional<PlaneTextures> makeTextures(const CVPixelBufferRef& pixelBuffer,
                                          CVMetalTextureCache& textureCache, const std::string& logName) {
  static constexpr std::array formats{MTLPixelFormat::r8Unorm, MTLPixelFormat::rg8Unorm};
  PlaneTextures planes;
  bool isComplete = true;
  for (std::size_t index = 0; index < formats.size(); ++index) {
    const std::size_t width = CVPixelBufferGetWidthOfPlane(*pixelBuffer, index);
    const std::size_t height = CVPixelBufferGetHeightOfPlane(*pixelBuffer, index);
    std::unique_ptr<CVMetalTexture> wrapper;
    const CVReturn result = textureCache.CVMetalTextureCacheCreateTextureFromImage(
        pixelBuffer, formats[index], width, height, index, wrapper);
    auto texture = result == kCVReturnSuccess && wrapper ? wrapper->CVMetalTextureGetTexture() : nullptr;
    if (!texture) {
      log(LogLevel::error, logName + " failed to create texture from the pixel buffer (index=" +
                               std::to_string(index) + ", ret=" + std::to_string(result) + ")");
      isComplete = false;
      continue;
    }
    if (index == 0) planes.imageSize = {static_cast<double>(width), static_cast<double>(height)};
    planes.textures[index] = std::move(texture);
  }
  if (!isComplete) return std::nullopt;
  return planes;
}

}  // namespace QelUtilVideo::metal
