#pragma once

#include "platform/Metal.h"
#include "platform/linux/vulkan/SharedGpu.h"
#include "platform/linux/vulkan/Submission.h"

#include <memory>
#include <vector>

namespace QelUtilVideo {

/// Main thread.
class GpuQueue final : public MTLCommandQueue {
 public:
  GpuQueue(std::shared_ptr<SharedGpu> gpu, std::shared_ptr<MTLDevice> device)
      : gpu_(std::move(gpu)), device_(std::move(device)) {}
  /// Null when the processor is lost, or has as much to do as it is to have.
  std::shared_ptr<MTLCommandBuffer> commandBuffer() override;

 private:
  const std::shared_ptr<SharedGpu> gpu_;
  const std::shared_ptr<MTLDevice> device_;
  std::vector<std::shared_ptr<Submission>> submissions_;
};

}  // namespace QelUtilVideo
