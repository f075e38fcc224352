#include "platform/linux/vulkan/GaussianBlur.h"

#include "platform/linux/vulkan/ByteBuffer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <utility>

namespace QelUtilVideo {

namespace {

// Compiled from the folder `shaders`.
#include <kernels/gaussianAcross.h>
#include <kernels/gaussianDown.h>

/// What the kernels have room for.
constexpr std::int32_t kMostReach = 60;

/// As the kernels have it.
struct Kernel {
  std::array<std::int32_t, 2> direction{};
  std::int32_t reach = 0;
  std::int32_t clampsToEdge = 0;
  std::array<float, (kMostReach + 1 + 3) / 4 * 4> weights{};
};

Kernel kernelOf(double sigma) {
  constexpr double smallest = 1.0 / 1024;
  Kernel kernel;
  const double reach = std::floor(sigma * std::sqrt(-2 * std::log(smallest)));
  kernel.reach = static_cast<std::int32_t>(std::min<double>(reach, kMostReach));
  double sum = 0;
  const auto weigh = [&](std::int32_t distance) {
    return std::exp(-distance * distance / (2 * sigma * sigma));
  };
  for (std::int32_t i = -kernel.reach; i <= kernel.reach; ++i) sum += weigh(i);
  for (std::int32_t i = 0; i <= kernel.reach; ++i) {
    kernel.weights[static_cast<std::size_t>(i)] = static_cast<float>(weigh(i) / sum);
  }
  return kernel;
}

template <std::size_t words>
ShaderCode codeOf(const std::uint32_t (&array)[words]) {
  return {array, array + words};
}

}  // namespace

std::shared_ptr<GaussianKernels> GaussianKernels::make(const std::shared_ptr<Gpu>& gpu) {
  const GroupShape across = ComputePipeline::usualShape(*gpu);
  auto made = std::make_shared<GaussianKernels>();
  made->passes_ = {ComputePipeline::make(gpu, codeOf(gaussianAcross), across),
                   ComputePipeline::make(gpu, codeOf(gaussianDown), {across.height, across.width})};
  return made->passes_[0] && made->passes_[1] ? made : nullptr;
}

GaussianBlur::GaussianBlur(std::shared_ptr<const GaussianKernels> kernels, float sigma)
    : kernels_(std::move(kernels)), sigma_(sigma) {
  makeBuffers();
}

void GaussianBlur::setEdgeMode(MPSImageEdgeMode mode) {
  edgeMode_ = mode;
  makeBuffers();
}

void GaussianBlur::makeBuffers() {
  Kernel kernel = kernelOf(static_cast<double>(sigma_));
  kernel.clampsToEdge = edgeMode_ == MPSImageEdgeMode::clamp ? 1 : 0;
  for (std::size_t i = 0; i < buffers_.size(); ++i) {
    kernel.direction = {i == 0 ? 1 : 0, i == 0 ? 0 : 1};
    buffers_[i] = std::make_shared<ByteBuffer>(std::as_bytes(std::span(&kernel, 1)));
  }
}

void GaussianBlur::encodeToCommandBuffer(MTLCommandBuffer& commands,
                                         const std::shared_ptr<MTLTexture>& source,
                                         const std::shared_ptr<MTLTexture>& destination) {
  const auto encoder = commands.computeCommandEncoder();
  if (!encoder || !source || !destination) return;
  const std::size_t width = source->width(), height = source->height();
  if (!between_ || between_->width() != width || between_->height() != height) {
    between_ = std::make_shared<DeviceTexture>(MTLTextureDescriptor{
        MTLPixelFormat::rgba16Float, width, height, MTLTextureUsageShaderRead | MTLTextureUsageShaderWrite});
  }
  const std::array<std::shared_ptr<MTLTexture>, 3> chain{source, between_, destination};
  for (std::size_t pass = 0; pass < buffers_.size(); ++pass) {
    const auto& pipeline = kernels_->passes()[pass];
    encoder->setComputePipelineState(pipeline);
    encoder->setBuffers({&buffers_[pass], 1});
    encoder->setTextures(std::span(chain).subspan(pass, 2));
    encoder->dispatchThreads({width, height, 1}, {pipeline->shape().width, pipeline->shape().height, 1});
  }
  encoder->endEncoding();
}

}  // namespace QelUtilVideo
