#include "render/metal/Blur.h"

#include "log/Log.h"
#include "platform/Platform.h"
#include "platform/SystemVersion.h"
#include "platform/UserDefaults.h"
#include "render/metal/BlurKernel.h"
#include "render/metal/Pipelines.h"

#include <cstdint>
#include <span>
#include <utility>

namespace QelUtilVideo::metal {

namespace {

bool isMpsEnabled(Platform& platform, MTLDevice& device) {
  return platform.systemVersion().isAtLeast(10, 13) && device.MPSSupportsMTLDevice() &&
         !platform.userDefaults().boolForKey("QelUtilVideoRenderViewMPSDisabled");
}

std::shared_ptr<MTLBuffer> makeDirection(MTLDevice& device, const std::array<std::int32_t, 2>& step) {
  return device.newBufferWithBytes(std::as_bytes(std::span(step)));
}

}  // namespace

Blur::Blur(Platform& platform, std::shared_ptr<MTLDevice> device, std::string logName)
    : platform_(platform),
      device_(std::move(device)),
      logName_(std::move(logName)),
      mpsEnabled_(isMpsEnabled(platform, *device_)) {
  if (!mpsEnabled_) {
    horzDirection_ = makeDirection(*device_, {1, 0});
    if (!horzDirection_) fatal(logName_ + " creating direction(h) buffer failed");
    vertDirection_ = makeDirection(*device_, {0, 1});
    if (!vertDirection_) fatal(logName_ + " creating direction(v) buffer failed");
    computeBlur_ = makeComputePipeline("computeBlur");
  }
  computeYUV2RGB_ = makeComputePipeline("computeYUV2RGB");
}

Blur::~Blur() = default;

bool Blur::dispatchesThreads() const {
  return platform_.systemVersion().isAtLeast(10, 13) &&
         device_->supportsFeatureSet(MTLFeatureSet::macOS_GPUFamily1_v3);
}

std::shared_ptr<MTLComputePipelineState> Blur::makeComputePipeline(const std::string& baseName) {
  const std::string name = baseName + (dispatchesThreads() ? "_NTGS" : "_UTGS");
  const auto function = loadLibrary(*device_, logName_)->newFunctionWithName(name);
  if (!function) fatal(logName_ + " load function \"" + name + "\" not found");
  auto pipeline = device_->newComputePipelineStateWithFunction(function);
  if (!pipeline.hasValue()) {
    fatal(logName_ + " creating compute pipeline failed: " + pipeline.error().description());
  }
  return std::move(pipeline.value());
}

bool Blur::update(std::size_t width, std::size_t height, float blurRadius) {
  const std::size_t radius = pixelRadius(width, height, blurRadius);
  if (radius == 0) return false;
  if (std::exchange(radius_, radius) != radius) {
    if (mpsEnabled_) {
      mpsBlur_ = device_->newMPSImageGaussianBlur(static_cast<float>(radius));
      mpsBlur_->setEdgeMode(MPSImageEdgeMode::clamp);
    } else {
      makeWeightsTexture();
    }
  }
  if (width == width_ && height == height_) return true;
  width_ = width;
  height_ = height;
  makeBlurTextures();
  return true;
}

void Blur::makeWeightsTexture() {
  const std::vector<float> weights = kernelWeights(radius_);
  // The last one counts in the sum, and is left out.
  const std::size_t stored = weights.size() - 1;
  weightsTexture_ =
      device_->newTextureWithDescriptor({MTLPixelFormat::r32Float, stored, 1, MTLTextureUsageShaderRead});
  if (!weightsTexture_) fatal(logName_ + " creating blur weights texture failed");
  weightsTexture_->replaceRegion({{0, 0, 0}, {stored, 1, 1}}, 0,
                                 std::as_bytes(std::span(weights).first(stored)), stored * sizeof(float));
}

void Blur::makeBlurTextures() {
  const MTLTextureDescriptor descriptor{MTLPixelFormat::bgra8Unorm, width_, height_,
                                        MTLTextureUsageShaderRead | MTLTextureUsageShaderWrite};
  auto first = device_->newTextureWithDescriptor(descriptor);
  auto second = first ? device_->newTextureWithDescriptor(descriptor) : nullptr;
  if (!second) fatal(logName_ + " creating blur textures failed");
  textures_ = {std::move(first), std::move(second)};
}

void Blur::encode(MTLCommandBuffer& commands, const PlaneTextures& planes) {
  const Textures conversion{planes.textures[0], planes.textures[1], textures_[0]};
  if (mpsEnabled_) {
    encodeComputePipeline(commands, computeYUV2RGB_, conversion);
    mpsBlur_->encodeToCommandBuffer(commands, textures_[0], textures_[1]);
    return;
  }
  const auto encoder = commands.computeCommandEncoder();
  if (!encoder) fatal(logName_ + " encode blur pipeline failed");
  dispatchComputePipeline(*encoder, computeYUV2RGB_, {}, conversion);
  dispatchComputePipeline(*encoder, computeBlur_, {horzDirection_},
                          {textures_[0], textures_[1], weightsTexture_});
  dispatchComputePipeline(*encoder, computeBlur_, {vertDirection_},
                          {textures_[1], textures_[0], weightsTexture_});
  encoder->endEncoding();
}

void Blur::encodeComputePipeline(MTLCommandBuffer& commands,
                                 const std::shared_ptr<MTLComputePipelineState>& pipeline,
                                 const Textures& textures) {
  const auto encoder = commands.computeCommandEncoder();
  if (!encoder) fatal(labelOf(commands) + " encode compute pipeline failed");
  dispatchComputePipeline(*encoder, pipeline, {}, textures);
  encoder->endEncoding();
}

void Blur::dispatchComputePipeline(MTLComputeCommandEncoder& encoder,
                                   const std::shared_ptr<MTLComputePipelineState>& pipeline,
                                   const Buffers& buffers, const Textures& textures) {
  encoder.setComputePipelineState(pipeline);
  encoder.setBuffers(buffers);
  encoder.setTextures(textures);
  const std::size_t width = textures[0]->width(), height = textures[0]->height();
  const std::size_t across = pipeline->threadExecutionWidth();
  const std::size_t down = pipeline->maxTotalThreadsPerThreadgroup() / across;
  const bool isByThreads = platform_.systemVersion().isAtLeast(10, 13) &&
                           encoder.device().supportsFeatureSet(MTLFeatureSet::macOS_GPUFamily1_v3);
  if (isByThreads) {
    encoder.dispatchThreads({width, height, 1}, {across, down, 1});
  } else {
    encoder.dispatchThreadgroups({(width + across - 1) / across, (height + down - 1) / down, 1},
                                 {across, down, 1});
  }
}

}  // namespace QelUtilVideo::metal
