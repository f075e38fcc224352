#include "render/metal/Pipelines.h"

#include "log/Log.h"
#include "render/metal/Geometry.h"

#include <utility>

namespace QelUtilVideo::metal {

std::shared_ptr<MTLLibrary> loadLibrary(MTLDevice& device, const std::string& logName) {
  auto library = device.newDefaultLibraryWithBundle();
  if (!library.hasValue()) fatal(logName + " load library failed: " + library.error().description());
  return std::move(library.value());
}

std::string labelOf(const MTLCommandBuffer& commands) {
  return commands.label().empty() ? "[RenderView:Metal:?]" : commands.label();
}

std::shared_ptr<MTLRenderPipelineState> makeRenderPipeline(MTLDevice& device,
                                                           const std::string& vertexFunction,
                                                           const std::string& fragmentFunction,
                                                           const std::string& logName) {
  const auto library = loadLibrary(device, logName);
  auto pipeline = device.newRenderPipelineState({library->newFunctionWithName(vertexFunction),
                                                 library->newFunctionWithName(fragmentFunction),
                                                 MTLPixelFormat::bgra8Unorm});
  if (!pipeline.hasValue())
    fatal(logName + " creating render pipeline failed: " + pipeline.error().description());
  return std::move(pipeline.value());
}

void encodeRenderPipeline(MTLCommandBuffer& commands, const std::shared_ptr<MTLRenderPipelineState>& pipeline,
                          const MTLRenderPassDescriptor& pass, const Geometry& geometry,
                          std::span<const std::shared_ptr<MTLTexture>> textures) {
  const auto encoder = commands.renderCommandEncoder(pass);
  if (!encoder) fatal(labelOf(commands) + " encode render pipeline failed");
  encoder->setRenderPipelineState(pipeline);
  encoder->setVertexBuffer(geometry.vertexBuffer(), 0, 0);
  encoder->setVertexBuffer(geometry.transformBuffer(), 0, 1);
  for (std::size_t i = 0; i < textures.size(); ++i) encoder->setFragmentTexture(textures[i], i);
  encoder->drawPrimitives(MTLPrimitiveType::triangleStrip, 0, 4);
  encoder->endEncoding();
}

}  // namespace QelUtilVideo::metal
