#pragma once

#include "platform/Metal.h"

#include <memory>
#include <span>
#include <string>

namespace QelUtilVideo::metal {

class Geometry;

/// The library's shaders. Ends the process when they cannot be had.
[[nodiscard]] std::shared_ptr<MTLLibrary> loadLibrary(MTLDevice& device, const std::string& logName);

/// What messages about the commands begin with.
[[nodiscard]] std::string labelOf(const MTLCommandBuffer& commands);

/// A pipeline of two functions of the library's shaders, for drawables. Loads the shader library anew. Ends
/// the process when that, or the pipeline, cannot be had.
[[nodiscard]] std::shared_ptr<MTLRenderPipelineState> makeRenderPipeline(MTLDevice& device,
                                                                         const std::string& vertexFunction,
                                                                         const std::string& fragmentFunction,
                                                                         const std::string& logName);

/// Draws the geometry's quad with these textures. Ends the process when there is nothing to draw with.
void encodeRenderPipeline(MTLCommandBuffer& commands, const std::shared_ptr<MTLRenderPipelineState>& pipeline,
                          const MTLRenderPassDescriptor& pass, const Geometry& geometry,
                          std::span<const std::shared_ptr<MTLTexture>> textures);

}  // namespace QelUtilVideo::metal
