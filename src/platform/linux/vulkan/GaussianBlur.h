#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/ComputePipeline.h"
#include "platform/linux/vulkan/DeviceTexture.h"

#include <array>
#include <memory>

namespace QelUtilVideo {

/// The kernels of all Gaussians of a processor. Main thread.
class GaussianKernels {
 public:
  /// Null when the driver does not take them.
  [[nodiscard]] static std::shared_ptr<GaussianKernels> make(const std::shared_ptr<Gpu>& gpu);

  /// From 8 bits a component to 16 along rows, and back along columns.
  [[nodiscard]] const std::array<std::shared_ptr<ComputePipeline>, 2>& passes() const { return passes_; }

 private:
  std::array<std::shared_ptr<ComputePipeline>, 2> passes_;
};

/// A true Gaussian, in two directions, as far as its weights are 1/1024 of the one in the centre or more.
/// Main thread.
class GaussianBlur final : public MPSImageGaussianBlur {
 public:
  /// `sigma` is a number above 0; what one above 16 would weigh too far away is left out.
  GaussianBlur(std::shared_ptr<const GaussianKernels> kernels, float sigma);

  void setEdgeMode(MPSImageEdgeMode mode) override;
  void encodeToCommandBuffer(MTLCommandBuffer& commands, const std::shared_ptr<MTLTexture>& source,
                             const std::shared_ptr<MTLTexture>& destination) override;

 private:
  void makeBuffers();

  const std::shared_ptr<const GaussianKernels> kernels_;
  const float sigma_;
  MPSImageEdgeMode edgeMode_ = MPSImageEdgeMode::zero;
  std::array<std::shared_ptr<MTLBuffer>, 2> buffers_;  ///< of the passes
  std::shared_ptr<DeviceTexture> between_;             ///< the passes
};

}  // namespace QelUtilVideo
