#pragma once

#include "platform/Metal.h"
#include "render/GeometryArithmetic.h"

#include <array>
#include <memory>
#include <optional>
#include <string>

namespace QelUtilVideo::metal {

/// The planes of a bi-planar picture as textures.
struct PlaneTextures {
  std::array<std::shared_ptr<MTLTexture>, 2> textures;  ///< luma, chroma
  PixelSize<double> imageSize;                          ///< that of the luma
};

/// None when a plane cannot be wrapped, with an error line for each such plane.
[[nodiscard]] std::optional<PlaneTextures> makeTextures(const CVPixelBufferRef& pixelBuffer,
                                                        CVMetalTextureCache& textureCache,
                                                        const std::string& logName);

}  // namespace QelUtilVideo::metal
